# Installs the library, its headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

set(orvante_installed orvante orvante_testing)
set(ORVANTE_PC_LIBS "-lorvante")
set(ORVANTE_PC_REQUIRES "cairo gdk-pixbuf-2.0 pangocairo pangoft2 fontconfig sdbus-c++ avahi-client sqlite3")
if(TARGET orvante_pdf)
  list(APPEND orvante_installed orvante_pdf)
  string(APPEND ORVANTE_PC_LIBS " -lorvante_pdf")
  string(APPEND ORVANTE_PC_REQUIRES " poppler-glib gio-2.0")
endif()
install(TARGETS ${orvante_installed} EXPORT orvanteTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orvante DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT orvanteTargets
  NAMESPACE orvante::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvante)

if(BUILD_SHARED_LIBS)
  set(ORVANTE_STATIC_INSTALL FALSE)
else()
  set(ORVANTE_STATIC_INSTALL TRUE)
endif()
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvanteConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orvanteConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvante)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvanteConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvanteConfig.cmake ${PROJECT_BINARY_DIR}/orvanteConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvante)

# The pkg-config file finds its prefix from its own place, so the
# installed tree can be moved.
file(RELATIVE_PATH ORVANTE_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/orvante.pc.in ${PROJECT_BINARY_DIR}/orvante.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvante.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
