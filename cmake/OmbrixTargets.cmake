include(GenerateExportHeader)

# Warnings and sanitizers of the project's own targets; nothing of it is exported.
function(ombrix_compile_rules target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
    if(OMBRIX_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(OMBRIX_SANITIZE)
        target_compile_options(${target} PRIVATE
            -O1 -g -fno-omit-frame-pointer -fno-sanitize-recover=all -fsanitize=${OMBRIX_SANITIZE})
        target_link_options(${target} PRIVATE -fsanitize=${OMBRIX_SANITIZE})
    endif()
endfunction()

# Precompiles what most sources of a target include, and further headers, where that is asked for.
function(ombrix_precompile target)
    if(OMBRIX_PRECOMPILE_HEADERS)
        target_precompile_headers(${target} PRIVATE
            <algorithm> <array> <cmath> <cstdint> <filesystem> <fstream> <functional> <limits> <memory> <string>
            <unordered_map> <vector> <Eigen/Geometry> ${ARGN})
    endif()
endfunction()

# One library of the project: target ombrix_<name>, alias ombrix::<name>, export header
# <ombrix/<name>/<name>_export.h> with the macro OMBRIX_<NAME>_API.
function(ombrix_library name)
    set(target ombrix_${name})
    string(TOUPPER ${name} upper)
    set(generated "${PROJECT_BINARY_DIR}/generated")

    add_library(${target})
    add_library(ombrix::${name} ALIAS ${target})
    ombrix_compile_rules(${target})
    ombrix_precompile(${target})
    generate_export_header(${target}
        BASE_NAME ombrix_${name}
        EXPORT_MACRO_NAME OMBRIX_${upper}_API
        EXPORT_FILE_NAME "${generated}/ombrix/${name}/${name}_export.h")
    if(NOT BUILD_SHARED_LIBS)
        target_compile_definitions(${target} PUBLIC OMBRIX_${upper}_STATIC_DEFINE)
    endif()
    target_sources(${target} PUBLIC
        FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}"
        FILE_SET generated TYPE HEADERS BASE_DIRS "${generated}"
            FILES "${generated}/ombrix/${name}/${name}_export.h")
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        VERIFY_INTERFACE_HEADER_SETS ON)
    install(TARGETS ${target} EXPORT ombrixcoreTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
        FILE_SET generated DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endfunction()

# Adds the calling folder's files to a library:
#   ombrix_sources(<target> HEADERS <installed headers> SOURCES <sources and private headers>)
function(ombrix_sources target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS;SOURCES")
    if(arg_SOURCES)
        target_sources(${target} PRIVATE ${arg_SOURCES})
    endif()
    if(arg_HEADERS)
        target_sources(${target} PUBLIC FILE_SET HEADERS FILES ${arg_HEADERS})
    endif()
endfunction()
