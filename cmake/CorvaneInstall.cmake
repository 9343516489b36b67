# Installation: the shared objects, their headers below include/corvane, CMake packages, pkg-config files, the command
# with its man page, and the temporary directory that decryption uses.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Headers of the layers are included as <heuristic/Scanner.h>, from include/corvane; those of the library over them, which
# lie there too, as <corvane/RuleSet.h>.
foreach(box IN ITEMS parser regex crypto heuristic)
  target_include_directories(${box} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/corvane>)
endforeach()
target_include_directories(libcorvane INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(parser regex crypto heuristic libcorvane PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS parser regex crypto heuristic EXPORT CorvaneHeuristicTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS libcorvane EXPORT CorvaneTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(headers IN ITEMS host heuristic)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/${headers}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvane FILES_MATCHING PATTERN "*.h")
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/corvane
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

foreach(package IN ITEMS CorvaneHeuristic Corvane)
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
  install(EXPORT ${package}Targets NAMESPACE ${package}:: DESTINATION ${package_dir})
  configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/${package}Config.cmake.in
    ${PROJECT_BINARY_DIR}/${package}Config.cmake INSTALL_DESTINATION ${package_dir})
  # Before 1.0 a minor version may break what the one before it promised.
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${package}Config.cmake
                ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    DESTINATION ${package_dir})
endforeach()

# Paths from where the file lies, so that it also holds for `cmake --install --prefix` and for a tree that was moved.
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
file(RELATIVE_PATH headers_from_prefix ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(module IN ITEMS corvane-heuristic corvane)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/tmpfiles/corvane.conf DESTINATION lib/tmpfiles.d)

if(CORVANE_BUILD_DAEMON)
  file(RELATIVE_PATH libraries_from_daemon
    ${CMAKE_INSTALL_FULL_SBINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(corvane-milter PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_daemon}")
  install(TARGETS corvane-milter RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/systemd/corvane-milter.service
    ${PROJECT_BINARY_DIR}/corvane-milter.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/corvane-milter.service DESTINATION lib/systemd/system)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/packaging/monitoring DESTINATION ${CMAKE_INSTALL_DATADIR}/corvane)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/sysusers/corvane.conf DESTINATION lib/sysusers.d)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/tmpfiles/corvane-milter.conf DESTINATION lib/tmpfiles.d)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/corvane-milter.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/corvane-milter.toml.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
endif()

if(CORVANE_BUILD_CLI)
  file(RELATIVE_PATH libraries_from_command
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(corvane PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_command}")
  install(TARGETS corvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/corvane.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man/subcommands/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_SOURCE_DIR}/completion/corvane.bash RENAME corvane
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${PROJECT_SOURCE_DIR}/completion/_corvane
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES ${PROJECT_SOURCE_DIR}/completion/corvane.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/drivers/corpus_dask.py ${PROJECT_SOURCE_DIR}/drivers/corpus-array.sh
    DESTINATION ${CMAKE_INSTALL_DATADIR}/corvane/drivers)
endif()
