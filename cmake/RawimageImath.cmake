# Finds Imath for the search for OpenEXR that follows, which then finds its targets there. Debian's configuration of
# Imath names a library for Python that is in no package that we need, and reports as status messages that the package
# may be faulty. Nothing here uses that library. Only messages of that level are dropped; the library that is used is
# looked at here.
function(rawimage_find_imath)
    if(TARGET Imath::Imath)
        return()
    endif()
    if(NOT CMAKE_MESSAGE_LOG_LEVEL MATCHES "^(ERROR|WARNING)$")
        set(CMAKE_MESSAGE_LOG_LEVEL NOTICE)
    endif()
    find_package(Imath CONFIG QUIET)
    if(NOT TARGET Imath::Imath)
        return()
    endif()
    get_target_property(configurations Imath::Imath IMPORTED_CONFIGURATIONS)
    foreach(configuration IN LISTS configurations)
        get_target_property(file Imath::Imath IMPORTED_LOCATION_${configuration})
        if(file AND NOT EXISTS "${file}")
            message(WARNING "Imath is not whole: ${file} is missing")
        endif()
    endforeach()
endfunction()
