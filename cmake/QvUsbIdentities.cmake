# What is made of src/icreader/usb_identities.list: the table of the library and of the tool, and the udev rule.
set(sList ${PROJECT_SOURCE_DIR}/src/icreader/usb_identities.list)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sList})
file(STRINGS ${sList} lRows REGEX "^[^#]")

set(sRows "")
set(sRules "")
set(nPlace 0)
foreach(sRow IN LISTS lRows)
  if(NOT sRow MATCHES "^([0-9A-F]+) +([0-9A-F]+) +([0-9]+)$")
    message(FATAL_ERROR "usb_identities.list: not vendor, product, place: ${sRow}")
  endif()
  set(sVendor ${CMAKE_MATCH_1})
  set(sProduct ${CMAKE_MATCH_2})
  math(EXPR nPlace "${nPlace} + 1")
  if(NOT CMAKE_MATCH_3 EQUAL nPlace)
    message(FATAL_ERROR "usb_identities.list: place ${nPlace} expected: ${sRow}")
  endif()
  string(APPEND sRows "    {0x${sProduct}, 0x${sVendor}},\n")
  string(TOLOWER ${sVendor} sVendorLow)
  string(TOLOWER ${sProduct} sProductLow)
  string(APPEND sRules
         "ATTRS{idVendor}==\"${sVendorLow}\", ATTRS{idProduct}==\"${sProductLow}\", TAG+=\"uaccess\"\n")
endforeach()

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/usb_identities.inc
     CONTENT "// Product id, vendor id, in the order of trial; made from usb_identities.list.\n@sRows@" @ONLY)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/70-qvreader.rules CONTENT
"# USB readers: whoever sits at the machine may use them, by the USB node and by the HID node.
SUBSYSTEM!=\"usb|hidraw\", GOTO=\"qvreader_end\"
ACTION==\"remove\", GOTO=\"qvreader_end\"
@sRules@LABEL=\"qvreader_end\"
" @ONLY)
