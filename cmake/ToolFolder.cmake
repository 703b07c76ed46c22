# Lays out the external tools beside an executable folder, under the names
# the program looks for: the launcher "run", the two ffmpeg builds, ffplay
# and sox/sox. On this platform they are links to the system's programs.
function(vidorra_tool_folder dir launcher)
    file(MAKE_DIRECTORY ${dir} ${dir}/sox)
    find_program(VIDORRA_FFMPEG ffmpeg)
    find_program(VIDORRA_FFPLAY ffplay)
    find_program(VIDORRA_SOX sox)
    foreach(pair "ffmpeg7_311=${VIDORRA_FFMPEG}" "ffmpeg9_311=${VIDORRA_FFMPEG}"
                 "ffplay=${VIDORRA_FFPLAY}" "sox/sox=${VIDORRA_SOX}" "run=${launcher}")
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
