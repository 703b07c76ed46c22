# The external tools under the names the program looks for beside its
# executable (name=program): the two ffmpeg builds, ffplay and sox/sox. On
# this platform they are links to the system's programs.
find_program(VIDORRA_FFMPEG ffmpeg)
find_program(VIDORRA_FFPLAY ffplay)
find_program(VIDORRA_SOX sox)
set(VIDORRA_TOOL_LINKS "ffmpeg7_311=${VIDORRA_FFMPEG}" "ffmpeg9_311=${VIDORRA_FFMPEG}"
                       "ffplay=${VIDORRA_FFPLAY}" "sox/sox=${VIDORRA_SOX}")

# Lays out the tools and the launcher "run" in an executable folder.
function(vidorra_tool_folder dir launcher)
    file(MAKE_DIRECTORY ${dir} ${dir}/sox)
    foreach(pair ${VIDORRA_TOOL_LINKS} "run=${launcher}")
        string(REPLACE "=" ";" parts "${pair}")
        list(GET parts 0 name)
        list(GET parts 1 target)
        if(target AND NOT target MATCHES "NOTFOUND$")
            file(CREATE_LINK ${target} ${dir}/${name} SYMBOLIC)
        else()
            message(WARNING "${name}: the program it stands for was not found")
        endif()
    endforeach()
endfunction()

# Puts the feed's helper programs (the native messaging host and
# vidorra2-sniff) of the application folder into `dir` as links, so that
# tests find them beside themselves as the program does.
function(vidorra_feed_tools dir)
    foreach(helper vidorra2-sniffer-host vidorra2-sniff)
        file(CREATE_LINK ${VIDORRA_APP_DIR}/${helper} ${dir}/${helper} SYMBOLIC)
    endforeach()
endfunction()

# Makes, at `cmake --install`, the symbolic link `link` (relative to the
# install prefix, under DESTDIR) pointing at `target`, and records it in
# install_manifest.txt.
function(vidorra_install_link link target)
    install(CODE "set(link \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${link}\")
        get_filename_component(folder \"\${link}\" DIRECTORY)
        file(MAKE_DIRECTORY \"\${folder}\")
        message(STATUS \"Installing: \${link} -> ${target}\")
        file(REMOVE \"\${link}\")
        file(CREATE_LINK \"${target}\" \"\${link}\" SYMBOLIC)
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${link}\")")
endfunction()

# The same tool links as vidorra_tool_folder, made by `cmake --install` in
# `destination` (relative to the install prefix).
function(vidorra_install_tool_links destination)
    foreach(pair ${VIDORRA_TOOL_LINKS})
        string(REPLACE "=" ";" parts "${pair}")
        list(GET parts 0 name)
        list(GET parts 1 target)
        if(target AND NOT target MATCHES "NOTFOUND$")
            vidorra_install_link(${destination}/${name} ${target})
        endif()
    endforeach()
endfunction()
