# Installs library, headers, CMake package, pkg-config file and licence; the tool and its worker lie
# together in libexec, with a link to the tool in bin. The installed tree may be moved as a whole.
include(CMakePackageConfigHelpers)

set(AIPLC_LIBEXEC_DIR ${CMAKE_INSTALL_LIBEXECDIR}/aiplc)
set(AIPLC_WORKER_DIR ${AIPLC_LIBEXEC_DIR}/x64)

install(TARGETS xanu_audiocore_aiplc EXPORT aiplcTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/aiplc DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS aiplc_worker RUNTIME DESTINATION ${AIPLC_WORKER_DIR})
install(FILES training/weights/model.bin DESTINATION ${AIPLC_WORKER_DIR}
        RENAME xanu_audio_aiplc.model)

if(TARGET aiplc_receiver)
  set_target_properties(aiplc_receiver PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS aiplc_receiver EXPORT aiplcTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()

if(TARGET gstaiplc)
  set_target_properties(gstaiplc PROPERTIES INSTALL_RPATH "$ORIGIN/..")
  install(TARGETS gstaiplc LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0)
endif()

if(TARGET aiplc)
  file(RELATIVE_PATH to_lib /${AIPLC_LIBEXEC_DIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(aiplc PROPERTIES INSTALL_RPATH "$ORIGIN/${to_lib}")
  install(TARGETS aiplc RUNTIME DESTINATION ${AIPLC_LIBEXEC_DIR})
  file(RELATIVE_PATH to_tool /${CMAKE_INSTALL_BINDIR} /${AIPLC_LIBEXEC_DIR}/aiplc)
  install(CODE "
    set(bin \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    file(MAKE_DIRECTORY \"\${bin}\")
    file(CREATE_LINK \"${to_tool}\" \"\${bin}/aiplc\" SYMBOLIC)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/aiplc\")")
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/aiplc)
install(EXPORT aiplcTargets NAMESPACE aiplc:: DESTINATION ${package_dir})
configure_package_config_file(cmake/aiplcConfig.cmake.in ${PROJECT_BINARY_DIR}/aiplcConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS AIPLC_WORKER_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/aiplcConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/aiplcConfig.cmake ${PROJECT_BINARY_DIR}/aiplcConfigVersion.cmake
        DESTINATION ${package_dir})
# pkg-config finds the prefix from where the file itself lies.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH to_prefix /${pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" to_prefix ${to_prefix})
configure_file(cmake/aiplc.pc.in ${PROJECT_BINARY_DIR}/aiplc.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/aiplc.pc DESTINATION ${pkgconfig_dir})
if(TARGET aiplc_receiver)
  configure_file(cmake/aiplc-receiver.pc.in ${PROJECT_BINARY_DIR}/aiplc-receiver.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/aiplc-receiver.pc DESTINATION ${pkgconfig_dir})
endif()
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The files of this installation, relative to the prefix, for cmake/Uninstall.cmake. Last of all rules.
install(CODE "
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES
       \"\${CMAKE_INSTALL_PREFIX}/${AIPLC_LIBEXEC_DIR}/installed_files.txt\")
  set(text \"\")
  foreach(file IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
    file(RELATIVE_PATH file \"\${CMAKE_INSTALL_PREFIX}\" \"\${file}\")
    string(APPEND text \"\${file}\\n\")
  endforeach()
  file(WRITE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${AIPLC_LIBEXEC_DIR}/installed_files.txt\"
       \"\${text}\")")
