# Optional compression libraries, whose Debian packages have no CMake configuration. The search runs where rawimage is
# built, and again where its static archive is linked.

# rawimage_find_codec(NAME HEADER LIBRARY): makes the target rawimage::NAME where header and library are found.
function(rawimage_find_codec name header library)
    if(TARGET rawimage::${name})
        return()
    endif()
    string(TOUPPER "${name}" upper)
    find_path(RAWIMAGE_${upper}_INCLUDE_DIR "${header}")
    find_library(RAWIMAGE_${upper}_LIBRARY "${library}")
    mark_as_advanced(RAWIMAGE_${upper}_INCLUDE_DIR RAWIMAGE_${upper}_LIBRARY)
    if(NOT RAWIMAGE_${upper}_INCLUDE_DIR OR NOT RAWIMAGE_${upper}_LIBRARY)
        return()
    endif()
    add_library(rawimage::${name} UNKNOWN IMPORTED GLOBAL)
    set_target_properties(rawimage::${name} PROPERTIES
        IMPORTED_LOCATION "${RAWIMAGE_${upper}_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${RAWIMAGE_${upper}_INCLUDE_DIR}")
endfunction()

function(rawimage_find_libdeflate)
    rawimage_find_codec(libdeflate libdeflate.h deflate)
endfunction()

function(rawimage_find_libisal)
    rawimage_find_codec(libisal isa-l.h isal)
endfunction()
