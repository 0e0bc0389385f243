# Debian packages: cmake --preset debian && cmake --build --preset debian && cpack --preset debian
#   libombrixcore1     the shared libraries; its name carries their SONAME
#   libombrixcore-dev  headers, CMake package and pkg-config file
set(CPACK_PACKAGE_NAME ombrixcore)
set(CPACK_PACKAGE_VENDOR "ombrixcore developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_STRIP_FILES ON)

set(runtime_package libombrixcore${PROJECT_VERSION_MAJOR})
set(development_package libombrixcore-dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "ombrixcore developers <developers@ombrixcore.invalid>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "The shared libraries: octrees addressed by Morton keys, selection within a
point budget, neighbourhood analysis, colours, meshes, and point files.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# What the installed headers include, and what the CMake package looks for.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libeigen3-dev (>= 3.4), libtbb-dev (>= 2021)")
if(NOT BUILD_SHARED_LIBS)
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libspdlog-dev")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libspdlog-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "The headers, the CMake package and the pkg-config file.")

foreach(component IN ITEMS runtime development)
    install(FILES "${PROJECT_SOURCE_DIR}/LICENSE"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package}
        RENAME copyright
        COMPONENT ${component}
        EXCLUDE_FROM_ALL)
endforeach()
include(CPack)
