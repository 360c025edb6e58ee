# The rendered manual page has a section for every command the tool lists in its help.
if(TARGET ole_manpage)
    add_test(NAME ole_manpage
        COMMAND sh -c [[
            set -e
            page=$(MANWIDTH=100 man -l "$2")
            for command in $("$1" --help | awk '/^Subcommands:/ { on = 1; next } on && /^  [a-z]/ { print $1 }'); do
                printf '%s\n' "$page" | grep -q "^   ole $command\$" || { echo "no section for $command"; exit 1; }
            done
            echo "manual page: every command present"
        ]] sh $<TARGET_FILE:ole_tool> ${CMAKE_BINARY_DIR}/tools/ole.1)
endif()
