// The demo server's request handling on raw request bytes, with the example data set.
#include "fuzz/FuzzEnvironment.h"
#include "tools/signature-server/SignatureServer.h"

#include <cstdint>
#include <memory>
#include <string_view>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    varnoth::fuzz::FuzzEnvironment::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth::signatureserver;
    // No log or record folder: a long run must not leave a file per input behind.
    static SignatureServer server(ServerOptions{VARNOTH_EXAMPLES_DIR, {}, {}, {}, {}});
    (void)server.handle(std::string_view(reinterpret_cast<const char*>(data), size));
    varnoth::fuzz::FuzzEnvironment::trimLog();
    return 0;
}
