# cmake -DKINDS_PROGRAM=... -DIN=mdstore.bash.in -DOUT=mdstore -P FillKinds.cmake
# The mdstore completion with the record kinds the program at KINDS_PROGRAM prints.
execute_process(COMMAND ${KINDS_PROGRAM} OUTPUT_VARIABLE MDSTORE_KINDS
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
if(failed OR MDSTORE_KINDS STREQUAL "")
    message(FATAL_ERROR "${KINDS_PROGRAM} printed no record kinds")
endif()
string(REPLACE "\n" " " MDSTORE_KINDS "${MDSTORE_KINDS}")
configure_file(${IN} ${OUT} @ONLY)
