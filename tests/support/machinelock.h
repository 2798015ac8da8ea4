// machinelock.h - one lock for the whole machine around everything that
// uses the fixed paths /tmp/vx/ and /dev/log. CTest's resource locks keep
// the tests of one run apart; this keeps apart the runs of several work
// trees (or a benchmark) on the same machine. Taken on first use, held until
// the process ends.
#ifndef VX_TEST_MACHINELOCK_H
#define VX_TEST_MACHINELOCK_H

void vxTestMachineLock();

#endif // VX_TEST_MACHINELOCK_H
