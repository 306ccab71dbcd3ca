# Installs the command, the libraries, the public headers and a package for find_package(kvbigdata).
# The installed files need neither this folder nor the build.

include(CMakePackageConfigHelpers)
set(kvPackageDir ${CMAKE_INSTALL_LIBDIR}/cmake/kvbigdata)

if(TARGET kvbig)
  install(TARGETS kvbig RUNTIME)
endif()
install(TARGETS kverrors kvhost kvbigdata kvruntime kvarray EXPORT kvbigdata LIBRARY ARCHIVE)
foreach(floor IN ITEMS errors/include host/include bigdata/public runtime/include array/include)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${floor}/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvbigdata)
endforeach()

set(kvArrowHeaderDir ${CMAKE_INSTALL_INCLUDEDIR}/kvbigdata-arrow)
if(kvArrowLibraryDir)
  # In separate folders, so that a system Arrow in the same prefix isn't changed.
  file(GLOB kvArrowLibraries
       ${kvArrowWheel}/libarrow.so.* ${kvArrowWheel}/libarrow_compute.so.*
       ${kvArrowWheel}/libparquet.so.*)
  file(GLOB kvArrowLicenses ${kvArrowWheel}-*.dist-info/licenses/*)
  install(FILES ${kvArrowLibraries} DESTINATION ${kvArrowLibraryDir})
  install(FILES ${kvArrowLicenses} DESTINATION ${CMAKE_INSTALL_DOCDIR}/arrow)
  install(DIRECTORY ${kvArrowWheel}/include/arrow ${kvArrowWheel}/include/parquet DESTINATION ${kvArrowHeaderDir}
          PATTERN python EXCLUDE)
  set(kvArrowReport "copied from ${kvArrowWheel} to \${CMAKE_INSTALL_PREFIX}/${kvArrowLibraryDir}")
else()
  get_target_property(kvArrowReport Arrow::arrow_shared LOCATION)
  string(PREPEND kvArrowReport "not copied; used from ")
endif()
install(CODE "message(STATUS \"Arrow: ${kvArrowReport}\")")

install(EXPORT kvbigdata NAMESPACE kv:: DESTINATION ${kvPackageDir} FILE kvbigdataTargets.cmake)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kvbigdataConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kvbigdataConfig.cmake
  INSTALL_DESTINATION ${kvPackageDir}
  PATH_VARS kvArrowLibraryDir kvArrowHeaderDir)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvbigdataConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/kvbigdataConfig.cmake
  ${PROJECT_BINARY_DIR}/kvbigdataConfigVersion.cmake
  ${CMAKE_CURRENT_LIST_DIR}/KvArrowTarget.cmake
  DESTINATION ${kvPackageDir})
