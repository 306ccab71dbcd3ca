# The warnings for our own code; every warning is an error. Third-party headers are included as SYSTEM.

add_library(kv_warnings INTERFACE)
target_compile_options(kv_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wdouble-promotion
  -Wshadow -Wold-style-cast -Wcast-qual -Wcast-align
  -Wnon-virtual-dtor -Woverloaded-virtual
  -Wformat=2 -Wimplicit-fallthrough -Wundef -Wextra-semi)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kv_warnings INTERFACE
    -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wsuggest-override)
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # From -O2 on, GCC 12 reports an overlap inside std::string's own operator+.
    target_compile_options(kv_warnings INTERFACE -Wno-restrict)
  endif()
endif()
