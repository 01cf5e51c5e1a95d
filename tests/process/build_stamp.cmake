# Run as a script: stamps of given moments.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/BuildStamp.cmake)

function(expect epoch expected)
    set(ENV{SOURCE_DATE_EPOCH} ${epoch})
    vexa_build_stamp(stamp)
    if(NOT stamp STREQUAL expected)
        message(SEND_ERROR "SOURCE_DATE_EPOCH=${epoch} gives \"${stamp}\" and not \"${expected}\"")
    endif()
endfunction()

expect(1775178062 "Apr  3 2026 01:01:02")
expect(1777539770 "Apr 30 2026 09:02:50")
expect(1780272000 "Jun  1 2026 00:00:00")
expect(1775779199 "Apr  9 2026 23:59:59")
expect(1775779200 "Apr 10 2026 00:00:00")
