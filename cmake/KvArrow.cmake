# Arrow C++ as one target, kv_arrow: the system's where find_package knows it, else the one inside
# a pyarrow wheel (headers and libraries lie in the package). Also part of the installed package.

set(KV_ARROW_WHEEL "" CACHE PATH "Folder of the Python package pyarrow; empty: the one in .venv")

add_library(kv_arrow INTERFACE IMPORTED GLOBAL)

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

if(SKBUILD AND NOT KV_ARROW_WHEEL)
  # A Python wheel runs on the Arrow of the pyarrow that it is installed beside.
  find_package(Python 3.11 REQUIRED COMPONENTS Interpreter)
  execute_process(
    COMMAND ${Python_EXECUTABLE} -c "import os, pyarrow; print(os.path.dirname(pyarrow.__file__))"
    OUTPUT_VARIABLE KV_ARROW_WHEEL OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()

if(NOT SKBUILD)
  find_package(Arrow QUIET CONFIG)
  find_package(ArrowCompute QUIET CONFIG)  # a library of its own since Arrow 21
  find_package(ArrowDataset QUIET CONFIG)
  find_package(Parquet QUIET CONFIG)
endif()
if(Arrow_FOUND AND ArrowCompute_FOUND AND ArrowDataset_FOUND AND Parquet_FOUND)
  message(STATUS "Arrow ${ARROW_VERSION} from the system")
  target_link_libraries(kv_arrow INTERFACE
    Arrow::arrow_shared ArrowCompute::arrow_compute_shared
    ArrowDataset::arrow_dataset_shared Parquet::parquet_shared)
else()
  set(kvWheel ${KV_ARROW_WHEEL})
  if(NOT kvWheel)
    file(GLOB kvWheel ${PROJECT_SOURCE_DIR}/.venv/lib/python3*/site-packages/pyarrow)
  endif()
  if(NOT kvWheel)
    message(FATAL_ERROR "Arrow C++ is missing: neither find_package(Arrow) nor the virtual "
                        "environment .venv has it. 'make setup' installs it.")
  endif()
  message(STATUS "Arrow from the wheel in ${kvWheel}")
  kv_arrow_from_wheel(${kvWheel})
  # The link path of what lies below the root isn't taken over at install; this one stays.
  list(APPEND CMAKE_INSTALL_RPATH ${kvWheel})
endif()
