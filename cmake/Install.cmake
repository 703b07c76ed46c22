# `cmake --install`: the application folder (the program, the feed's helper
# programs, the launcher, the stock settings file and the tool links) in
# <libdir>/vidorra2 (with the help page and the browser add-on), the program
# and vidorra2-sniff on the PATH, and the native messaging host
# manifests where the browsers look for them system-wide.
include(GNUInstallDirs)
set(VIDORRA_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/vidorra2)
set(VIDORRA_HOST_PATH ${CMAKE_INSTALL_FULL_LIBDIR}/vidorra2/vidorra2-sniffer-host)

install(TARGETS vidorra2 vidorra2-sniffer-host vidorra2-sniff RUNTIME DESTINATION ${VIDORRA_INSTALL_DIR})
install(PROGRAMS ${PROJECT_SOURCE_DIR}/deploy/run DESTINATION ${VIDORRA_INSTALL_DIR})
install(FILES ${PROJECT_SOURCE_DIR}/deploy/sniffer.ini DESTINATION ${VIDORRA_INSTALL_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/extension/ DESTINATION ${VIDORRA_INSTALL_DIR}/extension
        PATTERN "*.svg" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/deploy/help/ DESTINATION ${VIDORRA_INSTALL_DIR}/help)
vidorra_install_tool_links(${VIDORRA_INSTALL_DIR})
file(RELATIVE_PATH VIDORRA_FROM_BIN ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/vidorra2)
foreach(program vidorra2 vidorra2-sniff)
    install(CODE "set(bin \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR})
        file(MAKE_DIRECTORY \${bin})
        file(CREATE_LINK ${VIDORRA_FROM_BIN}/${program} \${bin}/${program} SYMBOLIC)")
endforeach()

# The manifests name the host by its absolute path: the prefix is the one
# given when configuring (CMAKE_INSTALL_PREFIX), not a later --prefix.

foreach(browser chromium firefox)
    configure_file(${PROJECT_SOURCE_DIR}/src/Feed/host/org.vidorra2.sniffer.${browser}.json.in
                   ${CMAKE_BINARY_DIR}/host-manifests/${browser}/org.vidorra2.sniffer.json @ONLY)
endforeach()
if(APPLE)
    set(VIDORRA_CHROMIUM_HOST_FOLDERS "/Library/Application Support/Chromium/NativeMessagingHosts"
                                      "/Library/Google/Chrome/NativeMessagingHosts")
    set(VIDORRA_FIREFOX_HOST_FOLDER "/Library/Application Support/Mozilla/NativeMessagingHosts")
else()
    set(VIDORRA_CHROMIUM_HOST_FOLDERS /etc/chromium/native-messaging-hosts /etc/opt/chrome/native-messaging-hosts)
    set(VIDORRA_FIREFOX_HOST_FOLDER /usr/lib/mozilla/native-messaging-hosts)
endif()
foreach(folder ${VIDORRA_CHROMIUM_HOST_FOLDERS})
    install(FILES ${CMAKE_BINARY_DIR}/host-manifests/chromium/org.vidorra2.sniffer.json DESTINATION ${folder})
endforeach()
install(FILES ${CMAKE_BINARY_DIR}/host-manifests/firefox/org.vidorra2.sniffer.json
        DESTINATION ${VIDORRA_FIREFOX_HOST_FOLDER})
