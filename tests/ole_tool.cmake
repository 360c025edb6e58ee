# ole_tool_test runs the built tool, found through a compile definition; without the tool its tests skip.
if(TARGET ole_tool AND TARGET ole_tool_test)
    target_compile_definitions(ole_tool_test PRIVATE OLE_TOOL_PATH="$<TARGET_FILE:ole_tool>")
    add_dependencies(ole_tool_test ole_tool)
endif()
# The tool's JSON output is read back with a JSON library that has nothing in common with the tool's writer.
find_package(nlohmann_json 3 REQUIRED)
target_link_libraries(ole_tool_test PRIVATE nlohmann_json::nlohmann_json)
