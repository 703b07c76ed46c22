# The real install: `cmake --install` into a scratch DESTDIR, its desktop
# entry and AppStream metadata validated, and the installed program started
# through bin/vidorra2 on the X server the suite runs on (xvfb-run).
add_test(NAME install COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/test-install.sh ${CMAKE_BINARY_DIR})
set_tests_properties(install PROPERTIES TIMEOUT 180 LABELS "install")
