# CPack: `cpack` in a build directory. Linux: one Debian package per install component
# (torvixe, torvixe-dev, torvixe-cli, torvixe-virtualboard, torvixe-doc, python3-torvixe).
# Windows: one ZIP
# holding every component.
set(CPACK_PACKAGE_NAME torvixe)
set(CPACK_PACKAGE_VENDOR "torvixe project")
set(CPACK_PACKAGE_CONTACT "torvixe maintainers <torvixe@example.org>")
set(CPACK_PACKAGE_INSTALL_DIRECTORY torvixe)
set(CPACK_COMPONENTS_ALL runtime dev cli virtualboard docs python)
set(CPACK_STRIP_FILES ON)

# First line: the Debian synopsis of the component's package; the rest its long description.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "User-mode driver library for the torvixe satellite-demodulator board
The shared library an application loads to drive the board through 64 C functions. On
hardware it binds the board vendor's IO library; torvixe-virtualboard provides one that
emulates the board.")
set(CPACK_COMPONENT_DEV_DESCRIPTION "torvixe development files
The C header, the CMake package (find_package(torvixe), target torvixe::torvixe) and the
pkg-config file for building applications against the torvixe library.")
set(CPACK_COMPONENT_CLI_DESCRIPTION "torvixe command-line tool
Lists, brings up and loads boards, tunes the receiver, shows its status and captures data.")
set(CPACK_COMPONENT_VIRTUALBOARD_DESCRIPTION "Virtual torvixe board
An IO library that emulates the whole board, so that the torvixe library, the CLI and
applications run without hardware; its control headers for test rigs, and sample FPGA
images and demodulator files. Not for machines with the real board.")
set(CPACK_COMPONENT_DOCS_DESCRIPTION "torvixe documentation
The architecture, the virtual board's configuration keys and the CLI's commands.")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Python 3 package for the torvixe library
The torvixe module: boards as Python objects over the library through ctypes, data channels
read into numpy arrays, and the virtual board's control interface for test rigs.")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
set(CPACK_COMPONENT_CLI_DEPENDS runtime)
set(CPACK_COMPONENT_VIRTUALBOARD_DEPENDS runtime)

if(WIN32)
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "User-mode driver library for the torvixe satellite-demodulator board")
  set(CPACK_GENERATOR ZIP)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
  set(CPACK_DEBIAN_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME torvixe)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "torvixe-cli, torvixe-doc")
  set(CPACK_DEBIAN_DEV_PACKAGE_NAME torvixe-dev)
  set(CPACK_DEBIAN_CLI_PACKAGE_NAME torvixe-cli)
  set(CPACK_DEBIAN_CLI_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_VIRTUALBOARD_PACKAGE_NAME torvixe-virtualboard)
  set(CPACK_DEBIAN_VIRTUALBOARD_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_DOCS_PACKAGE_NAME torvixe-doc)
  set(CPACK_DEBIAN_DOCS_PACKAGE_SECTION doc)
  set(CPACK_DEBIAN_DOCS_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-torvixe)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, python3-numpy")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS torvixe-virtualboard)
  # The C and C++ runtime versions come from dpkg-shlibdeps (CPack runs it with `file`) when
  # both are there; it looks for libtorvixe.so.1 (needed by the CLI, packaged separately) in
  # the build tree.
  find_program(TVX_DPKG_SHLIBDEPS dpkg-shlibdeps)
  find_program(TVX_FILE file)
  if(TVX_DPKG_SHLIBDEPS AND TVX_FILE)
    execute_process(COMMAND ${TVX_DPKG_SHLIBDEPS} --version RESULT_VARIABLE tvx_shlibdeps_rc
      OUTPUT_QUIET ERROR_QUIET)
  endif()
  if(TVX_DPKG_SHLIBDEPS AND TVX_FILE AND tvx_shlibdeps_rc EQUAL 0)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/bin)
  else()
    set(tvx_runtime_depends "libc6, libstdc++6, libgcc-s1")
    foreach(c RUNTIME CLI VIRTUALBOARD)
      set(CPACK_DEBIAN_${c}_PACKAGE_DEPENDS ${tvx_runtime_depends})
    endforeach()
  endif()
endif()

include(CPack)
