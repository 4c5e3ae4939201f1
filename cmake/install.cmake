# Install rules, in six components so that a package or a partial install takes what it needs:
#   runtime       the library (Linux: libtorvixe.so.1.0.0 and its SONAME link; Windows: the DLL)
#   dev           header, the libtorvixe.so link or the import library and .def, CMake package,
#                 pkg-config file
#   cli           the torvixe program, the sample receive profile and the recording IO
#                 library zarimrec
#   virtualboard  libzarimio / zarimio.dll, its control headers, the sample FPGA images and
#                 demodulator files: a hardware installation leaves it out and gets the vendor's
#   docs          README.md and docs/*.md
#   python        the Python package torvixe (pure Python over ctypes) and its example
# Included from the top-level CMakeLists.txt after every installed target is defined.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TVX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/torvixe)

install(TARGETS torvixe EXPORT torvixeTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/torvixe.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
if(WIN32)
  # For toolchains that make their own import library from the export list.
  install(FILES src/api/torvixe.def DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
endif()

install(EXPORT torvixeTargets NAMESPACE torvixe:: DESTINATION ${TVX_CMAKE_DIR} COMPONENT dev)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/torvixeConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/torvixeConfig.cmake ${CMAKE_BINARY_DIR}/torvixeConfigVersion.cmake
  DESTINATION ${TVX_CMAKE_DIR} COMPONENT dev)

# The .pc file finds the prefix from its own place, so the same file serves a staging prefix,
# the Debian packages (/usr) and an unpacked ZIP.
file(RELATIVE_PATH TVX_PC_TO_PREFIX
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TVX_PC_TO_PREFIX "${TVX_PC_TO_PREFIX}")
configure_file(cmake/torvixe.pc.in ${CMAKE_BINARY_DIR}/torvixe.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/torvixe.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

if(TARGET torvixe_cli)
  if(NOT WIN32)
    # In the build tree the CLI sits beside the library; installed, the library is in libdir.
    file(RELATIVE_PATH tvx_bin_to_lib
      ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(torvixe_cli PROPERTIES BUILD_WITH_INSTALL_RPATH OFF
      BUILD_RPATH_USE_ORIGIN ON INSTALL_RPATH "\$ORIGIN/${tvx_bin_to_lib}")
  endif()
  install(TARGETS torvixe_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT cli)
  # The sample receive profile: its $samples paths find the virtual board's samples installed
  # under share/torvixe/samples.
  install(FILES profiles/receive.ini DESTINATION ${CMAKE_INSTALL_DATADIR}/torvixe/profiles
          COMPONENT cli)
endif()

# The recording IO library, for the CLI's --record and for recording with any application:
# beside libzarimio in libdir on Linux, beside the programs in bin on Windows. Nothing links it,
# so its import library stays out.
install(TARGETS zarimrec
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT cli
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT cli
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT cli EXCLUDE_FROM_ALL)

# The library finds zarimio by its plain name: beside itself on Linux (RUNPATH $ORIGIN, both
# in libdir), beside the program on Windows (both in bin).
install(TARGETS zarimio
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT virtualboard
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT virtualboard
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT virtualboard)
install(FILES sim/include/zarimsim.h sim/include/zarimsim_payload.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT virtualboard)
install(DIRECTORY ${TVX_SAMPLES_DIR}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/torvixe/samples
  COMPONENT virtualboard)

# Pure Python, so one copy serves every Python 3, in the directory Debian's python3 searches
# under /usr (elsewhere it goes on PYTHONPATH). It finds the library from its own place:
# lib/libtorvixe.so.1 (Linux) or bin/torvixe.dll (Windows) under the same prefix.
set(TVX_PYTHON_DIR lib/python3/dist-packages)
install(DIRECTORY python/torvixe DESTINATION ${TVX_PYTHON_DIR} COMPONENT python
  FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
install(PROGRAMS python/examples/receive.py DESTINATION ${CMAKE_INSTALL_DATADIR}/torvixe/examples
  COMPONENT python)

file(GLOB TVX_DOC_FILES CONFIGURE_DEPENDS docs/*.md)
install(FILES README.md ${TVX_DOC_FILES} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT docs)
