# dcp30core: the driver object, the plug-in export and the FileAccessor
# worker, compiled once. An object library, so the plug-in and the test
# executables that link it get the very same objects (including the plug-in
# metadata and CreateDriver, which nothing references from inside).
add_library(dcp30core OBJECT
    ${CMAKE_CURRENT_LIST_DIR}/dcp30.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor_codec.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor_exchange.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor_read.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor_reply.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor_write.cpp
    ${CMAKE_CURRENT_LIST_DIR}/logging.cpp
)
# The worker's framing, codec and CSV files are static libraries linked into
# the plug-in, hence built position-independent (CMAKE_POSITION_INDEPENDENT_CODE
# at the top level; checked here so a change there cannot break the plug-in).
# The CSV classes stay private: nothing of them shows in the worker's header,
# and their QtWidgets usage must not turn a user's qApp into QApplication.
target_link_libraries(dcp30core PUBLIC dcpcommon dcp30codec Qt5::Core PRIVATE dcpcsv)
foreach(lib dcp30codec dcpcsv)
    get_target_property(pic ${lib} POSITION_INDEPENDENT_CODE)
    if(NOT pic)
        message(FATAL_ERROR "${lib} is linked into the dcp30 plug-in and must be position-independent")
    endif()
endforeach()

# The plug-in the runtime loads: build/lib/libdcp30.so.
add_library(dcp30 MODULE)
target_link_libraries(dcp30 PRIVATE dcp30core)
set_target_properties(dcp30 PROPERTIES OUTPUT_NAME dcp30)
