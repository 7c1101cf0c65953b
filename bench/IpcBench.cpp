// A request and its answer between two endpoints of one domain: the sender's frame, the
// kernel's datagram, the receiver's drain and copy, both ways. The argument is the payload size.
#include <benchmark/benchmark.h>

#include "LinxIpc.h"
#include "TestEnv.h"

namespace {
void BM_IpcRoundTrip(benchmark::State& state) {
    TestEnv env;
    LinxIpc a("Requester");
    LinxIpc b("Answerer");
    if (a.Init() != 0 || b.Init() != 0) {
        state.SkipWithError("endpoints not opened");
        return;
    }
    IpcMessage request;
    request.Allocate(13498, static_cast<unsigned int>(state.range(0)), nullptr);
    IpcMessage received;
    IpcMessage answer;
    for (auto _ : state) {
        if (a.Notify(b.Name(), request, true) != 0 ||
            b.Receive(1000, 0, LinxIpc::emptyString, &received) != 0 ||
            b.Notify(received.GetSender(), received, true) != 0 ||
            a.Receive(1000, 0, LinxIpc::emptyString, &answer) != 0) {
            state.SkipWithError("message lost");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * 2 * state.range(0));
}
BENCHMARK(BM_IpcRoundTrip)->Arg(0)->Arg(140)->Arg(4096)->Arg(65536);
}  // namespace
