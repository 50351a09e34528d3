# What an installation holds, each in the place that GNUInstallDirs gives it. Nothing in it names the place where it
# lies, so that the tree can be moved. Only the verification tool knows a directory, its product directory: in the
# preset install that is the current directory of each run, see ORVO_SOURCE_ROOT.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The library is headers: what finds it fits any machine and goes to share/.
set(orvo_cmake_dir "${CMAKE_INSTALL_DATADIR}/cmake/${PROJECT_NAME}")
install(TARGETS orvo_timing EXPORT orvo_timing FILE_SET HEADERS)
install(EXPORT orvo_timing FILE orvo_timingConfig.cmake NAMESPACE orvo:: DESTINATION "${orvo_cmake_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/orvo_timingConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES "${PROJECT_BINARY_DIR}/orvo_timingConfigVersion.cmake" DESTINATION "${orvo_cmake_dir}")

cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR
  BASE_DIRECTORY "${CMAKE_INSTALL_FULL_DATADIR}/pkgconfig" OUTPUT_VARIABLE orvo_include_from_pkgconfig)
configure_file(cmake/orvo_timing.pc.in orvo_timing.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/orvo_timing.pc" DESTINATION "${CMAKE_INSTALL_DATADIR}/pkgconfig")

if(ORVO_BUILD_TOOLS)
  get_property(orvo_programs GLOBAL PROPERTY orvo_programs)
  foreach(program IN LISTS orvo_programs)
    install(TARGETS ${program})
    install(FILES docs/man/${program}.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  endforeach()
endif()

install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}" OPTIONAL)
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}" PATTERN man EXCLUDE)
install(DIRECTORY examples DESTINATION "${CMAKE_INSTALL_DOCDIR}")
