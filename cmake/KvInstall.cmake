# Installs the command, the libraries, the public headers and a package for find_package(kvbigdata).

include(CMakePackageConfigHelpers)
set(kvPackageDir ${CMAKE_INSTALL_LIBDIR}/cmake/kvbigdata)

if(TARGET kvbig)
  install(TARGETS kvbig RUNTIME)
endif()
install(TARGETS kvhost kvbigdata kvruntime kvarray EXPORT kvbigdata LIBRARY ARCHIVE)
foreach(floor IN ITEMS host/include bigdata/public runtime/include array/include)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${floor}/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvbigdata)
endforeach()

install(EXPORT kvbigdata NAMESPACE kv:: DESTINATION ${kvPackageDir} FILE kvbigdataTargets.cmake)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kvbigdataConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kvbigdataConfig.cmake
  INSTALL_DESTINATION ${kvPackageDir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvbigdataConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/kvbigdataConfig.cmake
  ${PROJECT_BINARY_DIR}/kvbigdataConfigVersion.cmake
  ${CMAKE_CURRENT_LIST_DIR}/KvArrow.cmake
  DESTINATION ${kvPackageDir})
