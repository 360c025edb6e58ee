# The platform floor must build and link on its own: a program that uses it links only ole_platform.
add_executable(platform_alone ${CMAKE_CURRENT_LIST_DIR}/platform_alone.cpp)
target_link_libraries(platform_alone PRIVATE ole_platform)
add_test(NAME platform_alone COMMAND platform_alone)
