// The store's reading side on any bytes (fuzz::WriteStore makes the store): the segment scan,
// the reader with every record walked, taken into the state and dated, and the recovery a
// process runs when it opens the store again. What the store writes after recovery must read
// back, from a segment without trouble.
#include <string>

#include "DataStore.h"
#include "FuzzSupport.h"
#include "StoreScan.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string base = fuzz::WriteStore(data, size);
    mdj::StoreListing listing;
    mdj::ScanStore(base, listing);
    fuzz::ReadAll(base);
    {
        DataStoreNormal store(base);
        if (!store.Open()) {
            return 0;
        }
        store.ReportBookmark(fuzz::kMarkerTick);
        store.Close();
    }
    const fuzz::ReadCounts after = fuzz::ReadAll(base);
    fuzz::Check(after.marker && !after.markerFileTroubled,
                "the segment written after recovery does not read back clean");
    return 0;
}
