# Language level, visibility and run paths of everything built here; ccache and a fast linker if present.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# A shared library exports only the symbols that it marks as exported.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Installed binaries find our libraries relative to their own location.
include(GNUInstallDirs)
file(RELATIVE_PATH kvLibFromBin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN $ORIGIN/${kvLibFromBin})
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

# Presets whose builds start from nothing compile the sources of a target in groups (unity builds):
# most of the time is spent on headers. In such a group a name without linkage occurs once, and a
# type without linkage is reported wherever it is used. In the tests each file has its own names.
# Where more is inlined, GCC takes members of empty optionals and variants for uninitialised values.
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wno-subobject-linkage -Wno-maybe-uninitialized)
endif()

find_program(KV_CCACHE ccache)
if(KV_CCACHE)
  # Paths below the root are hashed as relative ones, so that all build folders share the cache.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${KV_CCACHE})
endif()

find_program(KV_MOLD mold)
if(KV_MOLD)
  add_link_options(-fuse-ld=mold)
endif()
