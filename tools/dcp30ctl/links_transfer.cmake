# read and write (transfer*.cpp) and the plug-in session they share with
# other subcommands (pluginsession.cpp): the runtime's stand-ins and the
# command record. The plug-in and the stand-in companion are loaded at run
# time from build/lib, so they are built with the tool.
target_link_libraries(dcp30ctl PRIVATE dcphostruntime dcphostserial dcpcommon)
add_dependencies(dcp30ctl dcp30 sdc35)
