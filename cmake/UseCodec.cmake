include("${CMAKE_CURRENT_LIST_DIR}/RawimageCodecs.cmake")

# rawimage_use_codec(OPTION NAME): links the library with rawimage::NAME as OPTION asks. OPTION's name with HAS_ in it
# (RAWIMAGE_HAS_ISAL) is then true in the caller.
function(rawimage_use_codec option name)
    string(REPLACE "RAWIMAGE_" "RAWIMAGE_HAS_" has "${option}")
    set(${has} OFF PARENT_SCOPE)
    if(${option} STREQUAL "AUTO" OR ${option})
        cmake_language(CALL rawimage_find_${name})
        if(TARGET rawimage::${name})
            target_link_libraries(rawimage PRIVATE rawimage::${name})
            set(${has} ON PARENT_SCOPE)
        elseif(NOT ${option} STREQUAL "AUTO")
            message(FATAL_ERROR "${option} is ${${option}}, and ${name} is not found")
        endif()
    endif()
endfunction()
