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
# Everything inside it is compiled with hidden visibility and the version
# script exports CreateDriver and Qt's entry points only (visibility alone
# leaves the C++ library's template instances exported). So the plug-in's
# toolkit functions bind inside it: a companion library loaded beside it may
# export the same names, and neither borrows the other's. It links nothing of
# the build tree at run time: no run path, so none of this machine's folders
# can reach a panel.
set_target_properties(dcp30core dcpcommon dcp30codec dcpcsv PROPERTIES
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
set(DCP30_EXPORTS ${CMAKE_CURRENT_LIST_DIR}/dcp30.exports)
target_link_options(dcp30 PRIVATE -Wl,--version-script=${DCP30_EXPORTS})
set_target_properties(dcp30 PROPERTIES OUTPUT_NAME dcp30 SKIP_BUILD_RPATH ON
                                       LINK_DEPENDS ${DCP30_EXPORTS})
