# The browser add-on as Firefox installs it, and the self-test's page.
#
# extension/ is loaded as it is by Chromium ("Load unpacked"). For Firefox the
# build writes its manifest (cmake/FirefoxManifest.cmake) and packs the add-on
# as vidorra2-sniffer.xpi beside the program, with Debian's zip; nothing needs
# the network. The XPI is not signed: Firefox ESR and Developer Edition take
# it with xpinstall.signatures.required set to false; a release Firefox once
# it is signed as an unlisted add-on (see README.md).
#
# The self-test plays testpage/clip.webm (made here with ffmpeg: VP9 and Opus,
# which every browser plays, above the list's 100,000-byte floor) in
# testpage/index.html; the program serves that folder on 127.0.0.1 while the
# test runs.
set(VIDORRA_FIREFOX_ADDON ${CMAKE_BINARY_DIR}/addon/firefox)
set(VIDORRA_XPI ${VIDORRA_APP_DIR}/vidorra2-sniffer.xpi)
file(GLOB VIDORRA_ADDON_FILES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/extension/*.js*
     ${PROJECT_SOURCE_DIR}/extension/icons/*.png)
find_program(VIDORRA_ZIP zip)
if(NOT VIDORRA_ZIP)
    message(FATAL_ERROR "zip not found: it packs the Firefox add-on (Debian: zip)")
endif()
add_custom_command(OUTPUT ${VIDORRA_XPI}
    COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR}/extension -DOUTPUT=${VIDORRA_FIREFOX_ADDON}
            -P ${PROJECT_SOURCE_DIR}/cmake/FirefoxManifest.cmake
    COMMAND ${CMAKE_COMMAND} -E rm -f ${VIDORRA_XPI}
    COMMAND ${CMAKE_COMMAND} -E chdir ${VIDORRA_FIREFOX_ADDON}
            ${VIDORRA_ZIP} -q -X -r ${VIDORRA_XPI} manifest.json background.js icons
    DEPENDS ${VIDORRA_ADDON_FILES} ${PROJECT_SOURCE_DIR}/cmake/FirefoxManifest.cmake
    COMMENT "Packing the Firefox add-on" VERBATIM)

set(VIDORRA_TEST_PAGE ${VIDORRA_APP_DIR}/testpage)
find_program(VIDORRA_FFMPEG ffmpeg)
set(clip ${VIDORRA_TEST_PAGE}/clip.webm)
set(make_clip COMMAND ${VIDORRA_FFMPEG} -nostdin -hide_banner -loglevel error -y
    -f lavfi -i testsrc2=size=320x240:rate=25:duration=6 -f lavfi -i sine=frequency=440:duration=6
    -c:v libvpx-vp9 -b:v 250k -deadline realtime -cpu-used 8 -c:a libopus -b:a 48k -shortest ${clip})
if(NOT VIDORRA_FFMPEG)
    # The page then says its video is missing; the rest of the program builds.
    message(WARNING "ffmpeg not found: the self-test's page comes without its video (Debian: ffmpeg)")
    set(make_clip "")
    set(clip "")
endif()
add_custom_command(OUTPUT ${VIDORRA_TEST_PAGE}/index.html ${clip}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${VIDORRA_TEST_PAGE}
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/deploy/testpage/index.html ${VIDORRA_TEST_PAGE}
    ${make_clip}
    DEPENDS ${PROJECT_SOURCE_DIR}/deploy/testpage/index.html
    COMMENT "Making the self-test's page and video" VERBATIM)
add_custom_target(browser-addon ALL DEPENDS ${VIDORRA_XPI} ${VIDORRA_TEST_PAGE}/index.html)

install(FILES ${VIDORRA_XPI} DESTINATION ${VIDORRA_INSTALL_DIR})
install(DIRECTORY ${VIDORRA_TEST_PAGE} DESTINATION ${VIDORRA_INSTALL_DIR})

# Firefox's enterprise policy that installs the XPI for every user of the
# computer (ExtensionSettings, a file:// address): beside the program always,
# in /etc/firefox/policies (where Debian's Firefox reads it) only when asked,
# since that file is the administrator's one place for all policies.
option(VIDORRA_FIREFOX_POLICY "Install Firefox's policies.json that installs the add-on for all users" OFF)
set(VIDORRA_POLICY_FOLDERS "\${CMAKE_INSTALL_PREFIX}/${VIDORRA_INSTALL_DIR}/firefox")
if(VIDORRA_FIREFOX_POLICY)
    list(APPEND VIDORRA_POLICY_FOLDERS /etc/firefox/policies)
    string(APPEND VIDORRA_CONFFILES "/etc/firefox/policies/policies.json\n")
endif()
foreach(folder ${VIDORRA_POLICY_FOLDERS})
    install(CODE "set(VIDORRA_XPI_PATH \"\${CMAKE_INSTALL_PREFIX}/${VIDORRA_INSTALL_DIR}/vidorra2-sniffer.xpi\")
        set(policy \"\$ENV{DESTDIR}${folder}/policies.json\")
        configure_file(\"${PROJECT_SOURCE_DIR}/deploy/linux/firefox-policies.json.in\" \"\${policy}\" @ONLY)
        message(STATUS \"Installing: \${policy}\")
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${policy}\")")
endforeach()
