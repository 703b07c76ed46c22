# `cmake --install`: the application folder (the program, the feed's helper
# programs, the launcher, the stock settings file, the tool links, the help
# page and the browser add-on) in lib/vidorra2 (the launcher's parts in
# lib/vidorra2/launcher), the program and
# vidorra2-sniff on the PATH as links into it, the desktop entry, the icon,
# the AppStream metadata, and the native messaging host manifests where the
# browsers look for them system-wide. `cpack -G DEB` packages the same.
#
# The application folder is lib/vidorra2 whatever CMAKE_INSTALL_LIBDIR says
# (lib/<multiarch> on Debian with the prefix /usr): it holds programs, not
# libraries, and the host manifests name it.
include(GNUInstallDirs)
set(VIDORRA_INSTALL_DIR lib/vidorra2)
set(VIDORRA_APP_ID org.vidorra2.vidorra2)
set(VIDORRA_HOMEPAGE "https://vidorra2.example" CACHE STRING
    "Home page of the project, named by the AppStream metadata (its screenshots lie under docs/screenshots)")
# The date of the release PROJECT_VERSION, for the AppStream metadata.
set(VIDORRA_RELEASE_DATE 2026-11-23)

install(TARGETS vidorra2 vidorra2-sniffer-host vidorra2-sniff RUNTIME DESTINATION ${VIDORRA_INSTALL_DIR})
install(PROGRAMS ${PROJECT_SOURCE_DIR}/deploy/run DESTINATION ${VIDORRA_INSTALL_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/deploy/launcher DESTINATION ${VIDORRA_INSTALL_DIR}
        FILES_MATCHING PATTERN "*.py" PATTERN "*.asc")
install(FILES ${PROJECT_SOURCE_DIR}/deploy/sniffer.ini DESTINATION ${VIDORRA_INSTALL_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/extension/ DESTINATION ${VIDORRA_INSTALL_DIR}/extension
        PATTERN "*.svg" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/deploy/help/ DESTINATION ${VIDORRA_INSTALL_DIR}/help)
vidorra_install_tool_links(${VIDORRA_INSTALL_DIR})

# On the PATH: relative links, so the installed tree can be moved (DESTDIR,
# packages). The program finds its folder through the link, as
# QCoreApplication::applicationDirPath() resolves it.
file(RELATIVE_PATH VIDORRA_FROM_BIN /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${VIDORRA_INSTALL_DIR})
foreach(program vidorra2 vidorra2-sniff)
    vidorra_install_link(${CMAKE_INSTALL_BINDIR}/${program} ${VIDORRA_FROM_BIN}/${program})
endforeach()

# The desktop entry, the AppStream metadata and the icon, under the
# application's id. The icon's PNG sizes are rendered from the SVG source
# when rsvg-convert is there; otherwise the committed 256 px image is used.
install(FILES ${PROJECT_SOURCE_DIR}/deploy/linux/${VIDORRA_APP_ID}.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
configure_file(${PROJECT_SOURCE_DIR}/deploy/linux/${VIDORRA_APP_ID}.metainfo.xml.in
               ${CMAKE_BINARY_DIR}/desktop/${VIDORRA_APP_ID}.metainfo.xml @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/desktop/${VIDORRA_APP_ID}.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

set(VIDORRA_ICON_SOURCE ${PROJECT_SOURCE_DIR}/resources/svg/logo.svg)
set(VIDORRA_ICON_FOLDER ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
find_program(VIDORRA_RSVG_CONVERT rsvg-convert)
if(VIDORRA_RSVG_CONVERT)
    set(icons)
    foreach(size 48 64 128 256 512)
        set(png ${CMAKE_BINARY_DIR}/desktop/icons/${size}.png)
        add_custom_command(OUTPUT ${png}
            COMMAND ${VIDORRA_RSVG_CONVERT} --width=${size} --height=${size} --format=png
                    --output=${png} ${VIDORRA_ICON_SOURCE}
            DEPENDS ${VIDORRA_ICON_SOURCE} VERBATIM)
        list(APPEND icons ${png})
        install(FILES ${png} DESTINATION ${VIDORRA_ICON_FOLDER}/${size}x${size}/apps RENAME ${VIDORRA_APP_ID}.png)
    endforeach()
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/desktop/icons)
    add_custom_target(vidorra-icons ALL DEPENDS ${icons} COMMENT "Rendering the application icon")
else()
    message(STATUS "rsvg-convert not found: the icon is installed at 256 px only (Debian: librsvg2-bin)")
    install(FILES ${PROJECT_SOURCE_DIR}/resources/images/logo.png
            DESTINATION ${VIDORRA_ICON_FOLDER}/256x256/apps RENAME ${VIDORRA_APP_ID}.png)
endif()
install(FILES ${VIDORRA_ICON_SOURCE} DESTINATION ${VIDORRA_ICON_FOLDER}/scalable/apps RENAME ${VIDORRA_APP_ID}.svg)

# The native messaging host manifests name the host by its absolute path:
# they are written when installing, for the prefix installed to (a later
# `--prefix`, or the package's /usr). Chromium and Google Chrome read theirs
# in /etc, Firefox in /usr/lib/mozilla, the only system folder it looks in:
# both outside the prefix (under DESTDIR), whatever the prefix is.
if(APPLE)
    set(VIDORRA_CHROMIUM_HOST_FOLDERS "/Library/Application Support/Chromium/NativeMessagingHosts"
                                      "/Library/Google/Chrome/NativeMessagingHosts")
    set(VIDORRA_FIREFOX_HOST_FOLDER "/Library/Application Support/Mozilla/NativeMessagingHosts")
else()
    set(VIDORRA_CHROMIUM_HOST_FOLDERS /etc/chromium/native-messaging-hosts /etc/opt/chrome/native-messaging-hosts)
    set(VIDORRA_FIREFOX_HOST_FOLDER /usr/lib/mozilla/native-messaging-hosts)
endif()
set(VIDORRA_HOST_MANIFESTS)
foreach(folder ${VIDORRA_CHROMIUM_HOST_FOLDERS})
    list(APPEND VIDORRA_HOST_MANIFESTS "chromium=${folder}")
endforeach()
list(APPEND VIDORRA_HOST_MANIFESTS "firefox=${VIDORRA_FIREFOX_HOST_FOLDER}")
foreach(pair ${VIDORRA_HOST_MANIFESTS})
    string(REPLACE "=" ";" parts "${pair}")
    list(GET parts 0 browser)
    list(GET parts 1 folder)
    if(NOT IS_ABSOLUTE "${folder}")
        set(folder "\${CMAKE_INSTALL_PREFIX}/${folder}")
    endif()
    install(CODE "set(VIDORRA_HOST_PATH \"\${CMAKE_INSTALL_PREFIX}/${VIDORRA_INSTALL_DIR}/vidorra2-sniffer-host\")
        set(manifest \"\$ENV{DESTDIR}${folder}/org.vidorra2.sniffer.json\")
        file(READ \"${PROJECT_SOURCE_DIR}/src/Feed/host/org.vidorra2.sniffer.${browser}.json.in\" template)
        string(CONFIGURE \"\${template}\" content @ONLY)
        message(STATUS \"Installing: \${manifest}\")
        file(WRITE \"\${manifest}\" \"\${content}\")
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${manifest}\")")
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/BrowserAddOn.cmake)

# `cpack -G DEB`: the package of the same install, for /usr. Its Depends are
# the tools the program drives (sox records through the sound server, pactl
# picks what it records, the launcher is a python3 script) and, found by
# dpkg-shlibdeps, the Qt libraries.
set(CPACK_PACKAGE_NAME vidorra2)
set(CPACK_PACKAGE_VENDOR "Vidorra 2")
set(CPACK_PACKAGE_CONTACT "Vidorra 2 <vidorra2@vidorra2.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keeps a video from the web, or just its sound")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Paste the address of a video page, pick one of the formats the site offers\n\
and save it as video or as audio only, in the container you choose. Also\n\
lists the media files the browser plays (through a browser add-on) and\n\
records a part of the screen with sound. Drives yt-dlp, ffmpeg and sox.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${VIDORRA_HOMEPAGE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "yt-dlp, ffmpeg, sox, libsox-fmt-pulse, pulseaudio-utils, python3, gpgv")
# Files in /etc are the administrator's (conffiles), as debhelper would mark them.
foreach(folder ${VIDORRA_CHROMIUM_HOST_FOLDERS})
    string(APPEND VIDORRA_CONFFILES "${folder}/org.vidorra2.sniffer.json\n")
endforeach()
file(WRITE ${CMAKE_BINARY_DIR}/debian/conffiles "${VIDORRA_CONFFILES}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/debian/conffiles)
set(CPACK_GENERATOR DEB)
include(CPack)
