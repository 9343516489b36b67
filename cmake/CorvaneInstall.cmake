# Installation: the shared objects, their headers below include/corvane, a CMake package, a pkg-config file, the command
# with its man page, and the temporary directory that decryption uses.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneHeuristic)

foreach(box IN ITEMS parser regex crypto heuristic)
  target_include_directories(${box} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/corvane>)
endforeach()
set_target_properties(parser regex crypto heuristic PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS parser regex crypto heuristic EXPORT CorvaneHeuristicTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT CorvaneHeuristicTargets NAMESPACE CorvaneHeuristic:: DESTINATION ${package_dir})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvane
  FILES_MATCHING PATTERN "*.h")

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/CorvaneHeuristicConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CorvaneHeuristicConfig.cmake INSTALL_DESTINATION ${package_dir})
# Before 1.0 a minor version may break what the one before it promised.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneHeuristicConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CorvaneHeuristicConfig.cmake
              ${PROJECT_BINARY_DIR}/CorvaneHeuristicConfigVersion.cmake
  DESTINATION ${package_dir})

# Paths from where the file lies, so that it also holds for `cmake --install --prefix` and for a tree that was moved.
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
file(RELATIVE_PATH headers_from_prefix ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${CMAKE_CURRENT_LIST_DIR}/corvane-heuristic.pc.in
  ${PROJECT_BINARY_DIR}/corvane-heuristic.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/corvane-heuristic.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/tmpfiles/corvane.conf DESTINATION lib/tmpfiles.d)

if(CORVANE_BUILD_CLI)
  file(RELATIVE_PATH libraries_from_command
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(corvane PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_command}")
  install(TARGETS corvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/corvane.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
