# Read by ctest where an emulator runs the tests: those that it can't run, each with the reason.

function(skip test reason)
    set_tests_properties(${test} PROPERTIES DISABLED TRUE)
    message("Skipped: ${test}: ${reason}")
endfunction()

skip(FactoryWithoutContextDeathTest.LogsWithItsTagAtLoad
    "it starts its own program anew, and this machine's kernel can't start a program of another architecture")
