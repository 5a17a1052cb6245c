# The tests that qemu's user emulation cannot run, as gtest_filter has them.
set(not_emulated
  # Holds processor time and wake-ups against limits: here they are the emulator's, which translates
  # what runs for the first time.
  ReliabilityTest.ClocksMayJumpAndAnIdleLibraryDoesNothing)

list(JOIN not_emulated ":" test_filter)
string(PREPEND test_filter "-")
