# Compiles every header of the library alone, twice in a row, with what a user of the library is given. Writes
# the list of the public ones for the include check.
get_target_property(public_headers rawimage HEADER_SET)
get_target_property(headers rawimage SOURCES)
list(FILTER headers INCLUDE REGEX "\\.h$")

set(public_list "")
foreach(header IN LISTS public_headers)
    file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}" "${header}")
    string(APPEND public_list "${name}\n")
endforeach()
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/public_headers.txt" CONTENT "${public_list}" @ONLY)

add_library(header_check OBJECT)
foreach(header IN LISTS public_headers headers)
    file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}" "${header}")
    set(unit "${CMAKE_CURRENT_BINARY_DIR}/header_check/${name}.cpp")
    file(CONFIGURE OUTPUT "${unit}" CONTENT "#include \"${name}\"\n#include \"${name}\"\n" @ONLY)
    target_sources(header_check PRIVATE "${unit}")
endforeach()
target_link_libraries(header_check PRIVATE rawimage::rawimage)
rawimage_own_code(header_check QUICK)
target_compile_options(header_check PRIVATE -Werror)
