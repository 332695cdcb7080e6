// The stale LUNs of every session of the benchmark's host: 10% are removed, 9% changed.
#pragma once

constexpr bool IsRemoved(unsigned long lun) { return lun % 10 == 3; }
constexpr bool IsChanged(unsigned long lun) { return !IsRemoved(lun) && lun % 10 == 7 && lun % 100 != 77; }
