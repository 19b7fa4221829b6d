# The target docs: pages about the public headers and of docs/, in docs/html of the build directory. Its warnings are
# errors. Doxygen is looked for when the target is built.
get_target_property(public_headers rawimage HEADER_SET)
file(GLOB manual_pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/*.md")
list(JOIN public_headers "\" \\\n    \"" DOCS_HEADERS)
list(JOIN manual_pages "\" \\\n    \"" DOCS_PAGES)
configure_file(packaging/Doxyfile.in "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
add_custom_target(docs
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${PROJECT_BINARY_DIR}/docs"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/docs"
    COMMAND doxygen "${PROJECT_BINARY_DIR}/Doxyfile"
    COMMAND "${CMAKE_COMMAND}" -E echo "${PROJECT_BINARY_DIR}/docs/html/index.html"
    VERBATIM)
