# dcp30core: the driver object, the plug-in export and the FileAccessor
# worker, compiled once. An object library, so the plug-in and the test
# executables that link it get the very same objects (including the plug-in
# metadata and CreateDriver, which nothing references from inside).
add_library(dcp30core OBJECT
    ${CMAKE_CURRENT_LIST_DIR}/dcp30.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fileaccessor.cpp
    ${CMAKE_CURRENT_LIST_DIR}/logging.cpp
)
target_link_libraries(dcp30core PUBLIC dcpcommon Qt5::Core)

# The plug-in the runtime loads: build/lib/libdcp30.so.
add_library(dcp30 MODULE)
target_link_libraries(dcp30 PRIVATE dcp30core)
set_target_properties(dcp30 PROPERTIES OUTPUT_NAME dcp30)
