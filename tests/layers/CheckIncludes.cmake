# Fails when a file of the core includes a header of a layer above its own, or when a
# machine's folder includes the core. Run as: cmake -DSRC=<src dir> -P CheckIncludes.cmake
#
# The order, lowest first; a folder may include its own layer and any below it.
set(order support platform base ddc display controls viewmodel app)
set(layer_of_gamma controls)
set(layer_of_osd controls)
set(layer_of_keyboard controls)

function(layer_index folder out)
  set(layer ${folder})
  if(DEFINED layer_of_${folder})
    set(layer ${layer_of_${folder}})
  endif()
  list(FIND order ${layer} index)
  set(${out} ${index} PARENT_SCOPE)
endfunction()

set(faults "")
foreach(folder support platform base ddc display gamma osd keyboard viewmodel app)
  layer_index(${folder} own)
  file(GLOB_RECURSE files ${SRC}/${folder}/*.h ${SRC}/${folder}/*.cpp)
  foreach(file ${files})
    file(RELATIVE_PATH shown ${SRC} ${file})
    # A machine's folder (platform/<machine>) may use the log layer, nothing above it.
    set(limit ${own})
    if(shown MATCHES "^platform/[a-z]+/")
      layer_index(base limit)
    endif()
    file(STRINGS ${file} includes REGEX "^#include \"[a-z]+/")
    foreach(line ${includes})
      string(REGEX REPLACE "^#include \"([a-z]+)/.*" "\\1" target "${line}")
      layer_index(${target} theirs)
      if(theirs GREATER limit)
        list(APPEND faults "${shown}: ${line}")
      endif()
    endforeach()
  endforeach()
endforeach()

if(faults)
  list(JOIN faults "\n  " text)
  message(FATAL_ERROR "Includes that run up the layers (move the code down, or the header):\n  ${text}")
endif()
