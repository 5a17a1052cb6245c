# The tests that qemu's user emulation cannot run, by gtest_filter's patterns.
set(not_under_emulation)
