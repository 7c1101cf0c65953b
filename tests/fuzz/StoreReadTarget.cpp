// The store's reading side on any bytes (fuzz::WriteStore makes the store): the segment scan,
// the reader with every record walked, taken into the state and dated, and the recovery a
// process runs when it opens the store again. Recovery must leave the store writing a segment
// that reads back without trouble.
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
        store.ReportBookmark(1000);
        store.Close();
    }
    const fuzz::ReadCounts after = fuzz::ReadAll(base);
    fuzz::Check(after.records > 0 && after.lastTroubles == 0,
                "the segment written after recovery does not read back clean");
    return 0;
}
