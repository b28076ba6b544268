# check, show, compare, plot: program files on a PC, read with the panel's
# CSV loader and checked with the write workflow's validator.
target_link_libraries(dcp30ctl PRIVATE dcp30codec dcpcsv)
