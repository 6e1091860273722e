# qv_add_room(NAME HEADERS h... LINKS room... SOURCES file...)
#
# One folder under src/ as an object library. It sees the public headers of its own subsystem and of those below it, and
# nothing else: the headers are linked into a folder of the room's own, so that an upward include does not compile.
function(qv_add_room sName)
  cmake_parse_arguments(ROOM "" "" "HEADERS;LINKS;SOURCES" ${ARGN})
  set(sSeen ${CMAKE_BINARY_DIR}/rooms/${sName})
  file(REMOVE_RECURSE ${sSeen})
  file(MAKE_DIRECTORY ${sSeen}/qvreader)
  foreach(sHeader IN LISTS ROOM_HEADERS)
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/include/qvreader/${sHeader}.h ${sSeen}/qvreader/${sHeader}.h SYMBOLIC)
  endforeach()

  add_library(qv_${sName} OBJECT ${ROOM_SOURCES})
  target_include_directories(qv_${sName} PRIVATE ${sSeen} ${CMAKE_CURRENT_SOURCE_DIR}/${sName})
  set_target_properties(qv_${sName} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_link_libraries(qv_${sName} PRIVATE qv_warnings)
  foreach(sRoom IN LISTS ROOM_LINKS)
    target_link_libraries(qv_${sName} PRIVATE qv_${sRoom}_internal)
  endforeach()
endfunction()
