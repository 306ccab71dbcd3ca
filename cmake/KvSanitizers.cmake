# Instruments everything built here with the sanitizers that KV_SANITIZE names.

if(KV_SANITIZE)
  add_compile_options(-fsanitize=${KV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code of the standard library (<regex>) gives warnings that it doesn't give otherwise.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_link_options(-fsanitize=${KV_SANITIZE})
endif()

if(KV_SANITIZE STREQUAL "thread")
  # Headers that most files include are parsed once for each target: the build takes half the time.
  target_precompile_headers(kv_warnings INTERFACE
    <algorithm> <atomic> <chrono> <condition_variable> <cstdint> <functional> <map> <memory> <mutex>
    <optional> <ranges> <set> <span> <string> <string_view> <thread> <unordered_map> <utility> <vector>)
endif()
