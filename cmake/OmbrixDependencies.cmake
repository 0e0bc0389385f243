# Finds a package or stops with one line that says what to install.
#   ombrix_find(<package> <version> <debian package> [COMPONENTS ...])
macro(ombrix_find package version debian)
    find_package(${package} ${version} QUIET ${ARGN})
    if(NOT ${package}_FOUND)
        message(FATAL_ERROR "ombrixcore needs ${package} ${version} or later: apt-get install ${debian}")
    endif()
endmacro()
