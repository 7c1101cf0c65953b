// Every fdatasync of the host platform goes through SyncData, which also notes, per file, how
// many syncs succeeded and how long the file was at the last one: the test seam
// hostseam::DataSyncsOf reads it back (see HostSeams.h).
#pragma once

namespace hostsystem {

// fdatasync(fd); 0 on success, -1 with errno set as fdatasync sets it.
int SyncData(int fd);

}  // namespace hostsystem
