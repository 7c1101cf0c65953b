// Data a component keeps in memory to write in batches (the store's records) must reach its
// file before the process sits idle and before anything in the process reads the file back (a
// range copy). The component registers a writer; the endpoint calls WritePending before it
// blocks waiting for input, the reader before it reads. Writers belong to the thread that
// registered them.
#pragma once

namespace hostsystem {

typedef void (*PendingWriter)(void* context);

// At most a handful of writers (one per open store); false when the table is full.
bool AddPendingWriter(PendingWriter writer, void* context);
void RemovePendingWriter(PendingWriter writer, void* context);
void WritePending();

}  // namespace hostsystem
