# Installs the command, the libraries and the public headers.

if(TARGET kvbig)
  install(TARGETS kvbig RUNTIME)
endif()
install(TARGETS kvhost kvbigdata LIBRARY)
install(TARGETS kvruntime kvarray ARCHIVE)
foreach(floor IN ITEMS host/include bigdata/public runtime/include array/include)
  if(EXISTS ${PROJECT_SOURCE_DIR}/${floor})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${floor}/
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvbigdata)
  endif()
endforeach()
