# The target kv_arrow: Arrow C++ for the build, and for programs on the installed package.

# kv_arrow_from_system(): the one that find_package found.
function(kv_arrow_from_system)
  if(NOT TARGET kv_arrow)
    add_library(kv_arrow INTERFACE IMPORTED GLOBAL)
    target_link_libraries(kv_arrow INTERFACE
      Arrow::arrow_shared ArrowCompute::arrow_compute_shared Parquet::parquet_shared)
  endif()
endfunction()

# kv_arrow_from_folder(<libraries> <headers>): the one in a folder, such as that of a pyarrow wheel.
function(kv_arrow_from_folder libraries headers)
  if(TARGET kv_arrow)
    return()
  endif()
  add_library(kv_arrow INTERFACE IMPORTED GLOBAL)
  foreach(name IN ITEMS arrow arrow_compute parquet)
    file(GLOB library ${libraries}/lib${name}.so.*)
    if(NOT library)
      message(FATAL_ERROR "No lib${name}.so.* in ${libraries}: run 'make setup' to repair the "
                          "virtual environment, or install kvbigdata again.")
    endif()
    add_library(kv_arrow_${name} SHARED IMPORTED GLOBAL)
    set_target_properties(kv_arrow_${name} PROPERTIES
      IMPORTED_LOCATION ${library}
      INTERFACE_INCLUDE_DIRECTORIES ${headers})
    target_link_libraries(kv_arrow INTERFACE kv_arrow_${name})
  endforeach()
endfunction()
