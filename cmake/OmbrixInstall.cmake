include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/ombrixcore")
configure_package_config_file(cmake/ombrixcoreConfig.cmake.in
    "${PROJECT_BINARY_DIR}/package/ombrixcoreConfig.cmake"
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/ombrixcoreConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(EXPORT ombrixcoreTargets NAMESPACE ombrix:: DESTINATION ${package_dir} COMPONENT development)
install(FILES
    "${PROJECT_BINARY_DIR}/package/ombrixcoreConfig.cmake"
    "${PROJECT_BINARY_DIR}/package/ombrixcoreConfigVersion.cmake"
    DESTINATION ${package_dir}
    COMPONENT development)

# Relative to the .pc file, so that the package can be installed anywhere and moved.
file(RELATIVE_PATH pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
set(pc_libs "-lombrix_mesh -lombrix_core")
if(OMBRIX_BUILD_IO)
    string(PREPEND pc_libs "-lombrix_io ")
endif()
if(NOT BUILD_SHARED_LIBS)
    set(pc_cflags "-DOMBRIX_CORE_STATIC_DEFINE -DOMBRIX_MESH_STATIC_DEFINE -DOMBRIX_IO_STATIC_DEFINE")
    set(pc_requires ", spdlog")
endif()
configure_file(cmake/ombrixcore.pc.in "${PROJECT_BINARY_DIR}/package/ombrixcore.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/ombrixcore.pc"
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
