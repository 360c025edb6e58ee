# The manual page ole.1, written by help2man from the built tool's own help (tools/manpage.sh), so it
# always matches the commands the tool has. Installed gzipped with the tool, in the `tools` component.
find_program(OLE_HELP2MAN help2man)
if(NOT OLE_HELP2MAN)
    message(WARNING "help2man not found: the ole manual page is not built (scripts/setup.sh installs it)")
    return()
endif()

set(OLE_MANPAGE ${CMAKE_CURRENT_BINARY_DIR}/ole.1)
add_custom_command(OUTPUT ${OLE_MANPAGE} ${OLE_MANPAGE}.gz
    COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/manpage.sh $<TARGET_FILE:ole_tool> ${OLE_MANPAGE}
    COMMAND sh -c "gzip -9nc \"$1\" > \"$1.gz\"" sh ${OLE_MANPAGE}
    DEPENDS ole_tool ${CMAKE_CURRENT_SOURCE_DIR}/manpage.sh
    COMMENT "Writing the ole manual page"
    VERBATIM)
add_custom_target(ole_manpage ALL DEPENDS ${OLE_MANPAGE} ${OLE_MANPAGE}.gz)
install(FILES ${OLE_MANPAGE}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
