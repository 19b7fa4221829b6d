# rawimage_own_code(TARGET [QUICK]) gives a target of this project the warnings and sanitizers that all our own code is
# built with. Nothing of it reaches a target that links the library. QUICK ones take long to optimise and little time to
# run: RAWIMAGE_QUICK_PROGRAMS leaves that out.
function(rawimage_own_code target)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wconversion
        $<$<BOOL:${RAWIMAGE_WERROR}>:-Werror>)
    if(RAWIMAGE_QUICK_PROGRAMS AND "QUICK" IN_LIST ARGN)
        target_compile_options(${target} PRIVATE -O0)
    endif()
    if(RAWIMAGE_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${RAWIMAGE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${RAWIMAGE_SANITIZE})
        if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
            target_compile_options(${target} PRIVATE
                -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitize_ignore.txt)
        endif()
    endif()
endfunction()
