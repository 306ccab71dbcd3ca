# Functions that all floors use.

# kv_sources(<out> <folder>): all .cpp files below a folder, looked up again at each build.
#
# A folder without sources yields one empty file, so that the floors above it still link.
function(kv_sources out folder)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  if(NOT sources)
    set(sources ${PROJECT_BINARY_DIR}/empty.cpp)
    file(TOUCH ${sources})
  endif()
  set(${out} ${sources} PARENT_SCOPE)
endfunction()

# kv_shared_floor(<name> <folder>): a shared library made of `<name>_objects`.
#
# The tests of that floor link the objects themselves, so they can use names that aren't exported.
function(kv_shared_floor name folder)
  kv_sources(sources ${folder})
  add_library(${name}_objects OBJECT ${sources})
  target_link_libraries(${name}_objects PRIVATE $<BUILD_INTERFACE:kv_warnings>)
  add_library(${name} SHARED)
  target_link_libraries(${name} PRIVATE ${name}_objects)
  target_link_options(${name} PRIVATE LINKER:--no-undefined)
  target_compile_features(${name} INTERFACE cxx_std_20)
  set_target_properties(${name} PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()

# kv_static_floor(<name> <folder>): a static library.
function(kv_static_floor name folder)
  kv_sources(sources ${folder})
  add_library(${name} STATIC ${sources})
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:kv_warnings>)
endfunction()
