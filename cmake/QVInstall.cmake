# What `cmake --install` puts in place: both libraries, their headers, a CMake package and two pkg-config files;
# of the tool also its manual page and its completion.
# Every installed file finds its neighbours relative to itself, so that the tree may be moved as a whole.

include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/QVLib)

install(TARGETS QVPlatform QVLib EXPORT QVLibTargets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/QVPlatform ${PROJECT_SOURCE_DIR}/include/QVLib
  TYPE INCLUDE FILES_MATCHING PATTERN "*.h")
if(TARGET qv)
  file(RELATIVE_PATH from_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(qv PROPERTIES INSTALL_RPATH "$ORIGIN/${from_bin_to_lib}")
  install(TARGETS qv)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/qv/completion/qv.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME qv)
  if(TARGET qv_manual)
    install(FILES ${PROJECT_BINARY_DIR}/tools/qv/qv.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endif()
install(EXPORT QVLibTargets NAMESPACE QVLib:: DESTINATION ${package_folder})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QVLibConfig.cmake.in QVLibConfig.cmake
  INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(QVLibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QVLibConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/QVLibConfigVersion.cmake
  DESTINATION ${package_folder})

# pkg-config knows a .pc file's own folder; the prefix is so many folders above it.
file(RELATIVE_PATH from_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" from_pc_to_prefix "${from_pc_to_prefix}")
if(BUILD_SHARED_LIBS)
  set(private .private)
  set(static_needs "")
else()
  # A static library brings none of its own needs along, so they belong on every link line.
  set(private "")
  set(static_needs ", libssl, libcrypto, zlib")
endif()
foreach(name QVPlatform QVLib)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
