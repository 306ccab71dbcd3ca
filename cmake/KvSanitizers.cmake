# Instruments everything built here with the sanitizers that KV_SANITIZE names.

if(KV_SANITIZE)
  add_compile_options(-fsanitize=${KV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KV_SANITIZE})
endif()
