# dcp30codec: controller framing and the segment codec. Pure code (no
# QObject, no I/O), shared by the FileAccessor worker, the host tool's
# offline check, the tests and the fuzz targets.
add_library(dcp30codec STATIC
    ${CMAKE_CURRENT_LIST_DIR}/controllerframes.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frametrace.cpp
    ${CMAKE_CURRENT_LIST_DIR}/segmentcodec.cpp
)
target_link_libraries(dcp30codec PUBLIC Qt5::Core)
