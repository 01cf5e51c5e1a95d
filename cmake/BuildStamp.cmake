# The time of SOURCE_DATE_EPOCH as __DATE__ and __TIME__ would write it: the day of the month is padded with a blank.
function(vexa_build_stamp result)
    string(TIMESTAMP stamp "%b %d %Y %H:%M:%S" UTC)
    string(REGEX REPLACE "^(...) 0" "\\1  " stamp "${stamp}")
    set(${result} "${stamp}" PARENT_SCOPE)
endfunction()
