# The helper process CookieJar_test starts to check numbering across runs and kills during a flush.
add_executable(cookie_child ${CMAKE_CURRENT_SOURCE_DIR}/cookie_child.cpp)
target_link_libraries(cookie_child PRIVATE ole)
add_dependencies(CookieJar_test cookie_child)
target_compile_definitions(CookieJar_test PRIVATE OLE_COOKIE_CHILD="$<TARGET_FILE:cookie_child>")
