# Writes ICON, an .icns file, from the SVG file DRAWING. Draws each size with RSVG_CONVERT and packs
# them with ICNS_WRITER, which is iconutil (macOS) or png2icns.
cmake_minimum_required(VERSION 3.25)

set(folder ${ICON}.iconset)
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})

function(draw pixels file)
  execute_process(COMMAND ${RSVG_CONVERT} -w ${pixels} -h ${pixels} -o ${folder}/${file} ${DRAWING}
    COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(ICNS_WRITER MATCHES "iconutil$")
  # The names of the files are iconutil's: points, and "@2x" for twice as many pixels.
  foreach(points 16 32 128 256 512)
    math(EXPR twice "2 * ${points}")
    draw(${points} icon_${points}x${points}.png)
    draw(${twice} icon_${points}x${points}@2x.png)
  endforeach()
  execute_process(COMMAND ${ICNS_WRITER} -c icns -o ${ICON} ${folder} COMMAND_ERROR_IS_FATAL ANY)
else()
  foreach(pixels 16 32 128 256 512)
    draw(${pixels} ${pixels}.png)
    list(APPEND drawn ${folder}/${pixels}.png)
  endforeach()
  execute_process(COMMAND ${ICNS_WRITER} ${ICON} ${drawn} COMMAND_ERROR_IS_FATAL ANY)
endif()
file(REMOVE_RECURSE ${folder})
