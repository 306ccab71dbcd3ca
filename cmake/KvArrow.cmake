# Finds Arrow C++ and makes it one target, kv_arrow: the system's if find_package finds it, otherwise
# the one inside a pyarrow wheel (the package contains headers and libraries).
include(KvArrowTarget)

set(kvArrowLibraryDir "")  # where the copy is installed; empty for no copy
set(KV_ARROW_WHEEL "" CACHE PATH "Folder of the Python package pyarrow; empty: the one in .venv")

if(SKBUILD AND NOT KV_ARROW_WHEEL)
  # A Python wheel uses the Arrow of the pyarrow in the same environment.
  find_package(Python 3.11 REQUIRED COMPONENTS Interpreter)
  execute_process(
    COMMAND ${Python_EXECUTABLE} -c "import os, pyarrow; print(os.path.dirname(pyarrow.__file__))"
    OUTPUT_VARIABLE KV_ARROW_WHEEL OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()

if(NOT SKBUILD)
  find_package(Arrow QUIET CONFIG)
  find_package(ArrowCompute QUIET CONFIG)  # a separate library since Arrow 21
  find_package(Parquet QUIET CONFIG)
endif()
if(Arrow_FOUND AND ArrowCompute_FOUND AND Parquet_FOUND)
  message(STATUS "Arrow ${ARROW_VERSION} from the system")
  kv_arrow_from_system()
  # The installed command finds this Arrow where it was linked from.
  set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
else()
  set(kvArrowWheel ${KV_ARROW_WHEEL})
  if(NOT kvArrowWheel)
    file(GLOB kvArrowWheel ${PROJECT_SOURCE_DIR}/.venv/lib/python3*/site-packages/pyarrow)
  endif()
  if(NOT kvArrowWheel)
    message(FATAL_ERROR "Arrow C++ is missing: neither find_package(Arrow) nor the virtual "
                        "environment .venv has it. 'make setup' installs it.")
  endif()
  message(STATUS "Arrow from the wheel in ${kvArrowWheel}")
  kv_arrow_from_folder(${kvArrowWheel} ${kvArrowWheel}/include)
  # A wheel may disappear with its virtual environment, so the installed command gets a copy: see
  # KvInstall.
  set(kvArrowLibraryDir ${CMAKE_INSTALL_LIBDIR}/kvbigdata)
  list(APPEND CMAKE_INSTALL_RPATH $ORIGIN/${kvLibFromBin}/kvbigdata)
endif()
