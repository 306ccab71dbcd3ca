# Arrow C++ as one target, kv_arrow: the system's where find_package knows it, else the one inside
# the pyarrow wheel of the project's virtual environment (headers and libraries lie in the package).

add_library(kv_arrow INTERFACE)

# kv_arrow_from_wheel(<folder>): links the libraries of an unpacked pyarrow wheel.
function(kv_arrow_from_wheel folder)
  foreach(name IN ITEMS arrow arrow_compute arrow_dataset parquet)
    file(GLOB library ${folder}/lib${name}.so.*)
    if(NOT library)
      message(FATAL_ERROR "No lib${name}.so.* in ${folder}: run 'make setup' to repair the "
                          "virtual environment.")
    endif()
    add_library(kv_arrow_${name} SHARED IMPORTED GLOBAL)
    set_target_properties(kv_arrow_${name} PROPERTIES
      IMPORTED_LOCATION ${library}
      INTERFACE_INCLUDE_DIRECTORIES ${folder}/include)
    target_link_libraries(kv_arrow INTERFACE kv_arrow_${name})
  endforeach()
endfunction()

find_package(Arrow QUIET CONFIG)
find_package(Parquet QUIET CONFIG)
find_package(ArrowDataset QUIET CONFIG)
find_package(ArrowCompute QUIET CONFIG)
if(Arrow_FOUND AND Parquet_FOUND AND ArrowDataset_FOUND)
  message(STATUS "Arrow ${ARROW_VERSION} from the system")
  target_link_libraries(kv_arrow INTERFACE
    Arrow::arrow_shared Parquet::parquet_shared ArrowDataset::arrow_dataset_shared)
  if(TARGET ArrowCompute::arrow_compute_shared)  # a library of its own since Arrow 21
    target_link_libraries(kv_arrow INTERFACE ArrowCompute::arrow_compute_shared)
  endif()
else()
  file(GLOB kvWheel ${PROJECT_SOURCE_DIR}/.venv/lib/python3*/site-packages/pyarrow)
  if(NOT kvWheel)
    message(FATAL_ERROR "Arrow C++ is missing: neither find_package(Arrow) nor the virtual "
                        "environment .venv has it. 'make setup' installs it.")
  endif()
  message(STATUS "Arrow from the wheel in ${kvWheel}")
  kv_arrow_from_wheel(${kvWheel})
  # The link path of what lies below the root isn't taken over at install; this one stays.
  list(APPEND CMAKE_INSTALL_RPATH ${kvWheel})
endif()
