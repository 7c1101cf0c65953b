#include "KvCommon.h"

#include "LogClient.h"

#include <cstdlib>
#include <exception>

const char* KvGetenv(const char* name) {
    return std::getenv(name);
}

void KorvaneTerminateHandler() {
    LogClient& log = LogClient::Instance();
    if ((log.Level() & 1u) != 0) {
        const std::exception_ptr current = std::current_exception();
        if (current == nullptr) {
            LogMsg::Log(1, log.ProcessName()) << "terminate called without an active exception";
        } else {
            try {
                std::rethrow_exception(current);
            } catch (const std::exception& e) {
                LogMsg::Log(1, log.ProcessName())
                    << "terminate called after throwing: " << e.what();
            } catch (...) {
                LogMsg::Log(1, log.ProcessName())
                    << "terminate called after throwing a non-standard exception";
            }
        }
    }
    std::abort();
}
