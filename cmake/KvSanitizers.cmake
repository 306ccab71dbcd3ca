# Instruments everything built here with the sanitizers that KV_SANITIZE names.

if(KV_SANITIZE)
  add_compile_options(-fsanitize=${KV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code of the standard library (<regex>) gives warnings that it doesn't give otherwise.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_link_options(-fsanitize=${KV_SANITIZE})
endif()
