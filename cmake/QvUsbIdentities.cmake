# What is made of src/usb_identities.list: the tables of the library's two sides, the table of the tool, the udev rule.
set(sList ${PROJECT_SOURCE_DIR}/src/usb_identities.list)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sList})
file(STRINGS ${sList} lRows REGEX "^[^#]")

set(sRows "")
set(sRules "")
foreach(sRow IN LISTS lRows)
  if(NOT sRow MATCHES "^([0-9A-F]+) +([0-9A-F]+) +([0-9]+|-) +([0-9]+|-)$")
    message(FATAL_ERROR "usb_identities.list: not vendor, product, two places: ${sRow}")
  endif()
  set(sVendor ${CMAKE_MATCH_1})
  set(sProduct ${CMAKE_MATCH_2})
  set(sEntry "    {0x${sProduct}, 0x${sVendor}},\n")
  foreach(sPlace ic_${CMAKE_MATCH_3} stripe_${CMAKE_MATCH_4})
    if(sPlace MATCHES "_(-|[1-6])$")
      if(DEFINED sEntry_${sPlace} AND NOT CMAKE_MATCH_1 STREQUAL "-")
        message(FATAL_ERROR "usb_identities.list: place ${sPlace} is taken: ${sRow}")
      endif()
      set(sEntry_${sPlace} ${sEntry})
    else()
      message(FATAL_ERROR "usb_identities.list: there is no place ${sPlace}: ${sRow}")
    endif()
  endforeach()
  string(APPEND sRows ${sEntry})
  string(TOLOWER ${sVendor} sVendorLow)
  string(TOLOWER ${sProduct} sProductLow)
  string(APPEND sRules
         "ATTRS{idVendor}==\"${sVendorLow}\", ATTRS{idProduct}==\"${sProductLow}\", TAG+=\"uaccess\"\n")
endforeach()

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/usb_identities.inc
     CONTENT "// Product id, vendor id of every known reader; made from usb_identities.list.\n@sRows@" @ONLY)
foreach(sSide ic stripe)
  set(sRows "")
  foreach(nPlace RANGE 1 6)
    if(NOT DEFINED sEntry_${sSide}_${nPlace})
      message(FATAL_ERROR "usb_identities.list: ${sSide} has no place ${nPlace}")
    endif()
    string(APPEND sRows ${sEntry_${sSide}_${nPlace}})
  endforeach()
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/usb_identities_${sSide}.inc
       CONTENT "// Product id, vendor id, in the order of trial; made from usb_identities.list.\n@sRows@" @ONLY)
endforeach()
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/70-qvreader.rules CONTENT
"# USB readers: whoever sits at the machine may use them, by the USB node and by the HID node.
SUBSYSTEM!=\"usb|hidraw\", GOTO=\"qvreader_end\"
ACTION==\"remove\", GOTO=\"qvreader_end\"
@sRules@LABEL=\"qvreader_end\"
" @ONLY)
