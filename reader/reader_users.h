// Finds out who uses a disk of this host, from what the kernel holds in memory: no disk is opened.
#pragma once

#include "reader_model.h"

// Sets `use` of every stale disk of the run that the run did not delete and that the kernel still has, as lsblk(8) and,
// for the paths of multipath maps, dmsetup(8) print it. If lsblk prints nothing that can be read, sets
// `areUsersUnknown` of the run instead. Without dmsetup, no map counts as in use through another path.
void READER_FindUsers(Run &run);
