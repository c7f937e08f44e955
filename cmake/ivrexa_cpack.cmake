# cpack reads this first. The files of the archive have one time, so that the same files make the same archive: that of
# SOURCE_DATE_EPOCH or the first one that a ZIP can tell.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
    set(ENV{SOURCE_DATE_EPOCH} 315532800)
endif()
set(ENV{TZ} UTC)        # a ZIP tells local time
