// The demo server's request handling on raw request bytes, with the example data set.
#include "fuzz/FuzzEnvironment.h"
#include "tools/signature-server/SignatureServer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth::signatureserver;
    // No log or record folder: a long run must not leave a file per input behind.
    static SignatureServer server(ServerOptions{VARNOTH_TEST_DATA_DIR, {}, {}, {}, {}});
    (void)server.handle(varnoth::fuzz::bytes(data, size));
    varnoth::fuzz::FuzzEnvironment::trimLog();
    return 0;
}
