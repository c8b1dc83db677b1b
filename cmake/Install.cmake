# libkorvex and the installation.
#
# libkorvex is the solver behind the C interface of include/korvex/korvex.h, as one shared
# library (libkorvex.so.MAJOR, exporting only the functions of that header) and one static
# library (libkorvex.a), both made of the objects of the folder libraries korvex_kernels ..
# korvex_core. The folder libraries stay what the command, the link and the tests build on.
#
# `cmake --install` puts in place: bin/korvex, the two libraries and libKorvexLink.so
# under lib/, include/korvex/, the CMake package (find_package(Korvex CONFIG) gives
# Korvex::korvex, shared, and Korvex::korvex_static), korvex.pc, and the man page
# korvex.1, made from `korvex --help` so that it follows the command's options.

set(korvex_library_objects "")
foreach(folder IN ITEMS kernels reporting records linsys cones directions core)
  list(APPEND korvex_library_objects $<TARGET_OBJECTS:korvex_${folder}>)
endforeach()
set(korvex_public_includes
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src/include>
  $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

add_library(korvex_shared SHARED ${korvex_library_objects})
target_include_directories(korvex_shared PUBLIC ${korvex_public_includes})
# Library files rather than the imported targets: a shared library keeps its dependencies
# to itself, and the exported package then names none of them.
target_link_libraries(korvex_shared PRIVATE
  ${KORVEX_AMD_LIBRARY} ${KORVEX_CXSPARSE_LIBRARY} ${KORVEX_OPENBLAS_LIBRARY} m)
set_target_properties(korvex_shared PROPERTIES
  OUTPUT_NAME korvex
  EXPORT_NAME korvex
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/korvex.map)
# The version script keeps the solver's C++ internals, and the C++ runtime's inline
# symbols, out of the dynamic symbol table: only the C interface is visible.
target_link_options(korvex_shared PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/korvex.map")
if(NOT KORVEX_INSTRUMENTED)
  target_link_options(korvex_shared PRIVATE "LINKER:--no-undefined")
endif()

# A static library carries no dependencies of its own: the package names them by library
# name, to be found on the linker's search path, the C++ runtime included for a C caller.
add_library(korvex_static STATIC ${korvex_library_objects})
target_include_directories(korvex_static PUBLIC ${korvex_public_includes})
set(korvex_static_dependencies amd cxsparse openblas stdc++ m)
foreach(dependency IN LISTS korvex_static_dependencies)
  target_link_libraries(korvex_static INTERFACE $<LINK_ONLY:${dependency}>)
endforeach()
set_target_properties(korvex_static PROPERTIES
  OUTPUT_NAME korvex
  EXPORT_NAME korvex_static
  LINKER_LANGUAGE CXX)

# ---- Man page ------------------------------------------------------------------------------

find_program(KORVEX_HELP2MAN help2man)
if(KORVEX_HELP2MAN)
  set(korvex_man_page ${PROJECT_BINARY_DIR}/man/korvex.1)
  # help2man takes the program's name from the file it runs, hence the folder of its own.
  set(korvex_help_for_man ${PROJECT_BINARY_DIR}/man/help/korvex)
  file(READ ${PROJECT_SOURCE_DIR}/man/help_for_man.sh.in korvex_help_script)
  file(GENERATE OUTPUT ${korvex_help_for_man} CONTENT "${korvex_help_script}"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  add_custom_command(
    OUTPUT ${korvex_man_page}
    COMMAND ${KORVEX_HELP2MAN} --no-info --no-discard-stderr
            --version-string=${PROJECT_VERSION}
            --name "solve a convex cone program from a CBF, SDPA or MPS file"
            --section 1 --include ${PROJECT_SOURCE_DIR}/man/korvex.h2m
            --output ${korvex_man_page} ${korvex_help_for_man}
    DEPENDS korvex ${korvex_help_for_man} ${PROJECT_SOURCE_DIR}/man/korvex.h2m
    COMMENT "Writing the man page korvex.1 from korvex --help"
    VERBATIM)
  add_custom_target(korvex_man ALL DEPENDS ${korvex_man_page})
  install(FILES ${korvex_man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
  message(WARNING "help2man not found: the man page korvex.1 is neither built nor installed")
endif()

# ---- Install ---------------------------------------------------------------------------------

install(TARGETS korvex RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS korvex_shared korvex_static EXPORT KorvexTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The host link is loaded by path or by name with dlopen; nothing links against it.
install(TARGETS KorvexLink LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/src/include/korvex/korvex.h ${PROJECT_BINARY_DIR}/include/korvex/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/korvex)

include(CMakePackageConfigHelpers)
set(korvex_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Korvex)
install(EXPORT KorvexTargets NAMESPACE Korvex:: DESTINATION ${korvex_cmake_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KorvexConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KorvexConfig.cmake INSTALL_DESTINATION ${korvex_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KorvexConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KorvexConfig.cmake ${PROJECT_BINARY_DIR}/KorvexConfigVersion.cmake
  DESTINATION ${korvex_cmake_dir})

# korvex.pc finds its prefix from where it lies, so that one file serves any prefix given
# to `cmake --install --prefix` and the package alike.
file(RELATIVE_PATH korvex_pc_to_prefix
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REPLACE ";" " -l" korvex_pc_private "-l${korvex_static_dependencies}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/korvex.pc.in ${PROJECT_BINARY_DIR}/korvex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/korvex.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- Debian package ----------------------------------------------------------------------

set(CPACK_PACKAGE_NAME korvex)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "solver for convex cone programs: command, C library and host link")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "Korvex solves convex cone programs (zero, non-negative, second-order,\n"
  "semidefinite, exponential and power cones) by operator splitting on a\n"
  "homogeneous self-dual embedding. This package holds the korvex command and\n"
  "its man page, the libkorvex library (shared and static) with its C header,\n"
  "CMake package and pkg-config file, and the KorvexLink host library.")
set(KORVEX_PACKAGE_MAINTAINER "Korvex developers <korvex@localhost>" CACHE STRING
  "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${KORVEX_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
# dpkg-shlibdeps names the package of every shared library the binaries load: libc6,
# libstdc++6, libgcc-s1, zlib1g, libamd2, libcxsparse3, and libopenblas0 (any of Debian's
# OpenBLAS builds).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file for packages built on libkorvex, and the ldconfig trigger that makes
# libkorvex.so.1 known to the dynamic loader as soon as the package is installed.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Linking the static library needs the development files of its dependencies.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libsuitesparse-dev, libopenblas-dev, pkg-config, python3-distributed")
# The Python module, when built, goes into the package too; it imports numpy and scipy.
if(TARGET korvex_python)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "python3, python3-numpy, python3-scipy")
endif()
set(CPACK_GENERATOR DEB)
include(CPack)
