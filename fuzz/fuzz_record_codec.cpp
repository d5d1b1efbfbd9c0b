// libFuzzer target: the server's decoding of the messages a client sends. The first byte picks
// the message, the rest is its wire form.

#include <cstddef>
#include <cstdint>

#include "CRecordCodec.h"

namespace {

// Parses a request message and decodes it as the server does.
template <typename Message, typename Request>
void decodeRequest(const uint8_t* data, size_t size,
                   utils::RKError (*decode)(const Message&, Hlx::CRequestTarget*, Request*)) {
    Message message;
    if (!message.ParseFromArray(data, int(size)))
        return;
    Hlx::CRequestTarget target = Hlx::CRequestTarget::centre();
    Request request;
    decode(message, &target, &request);
}

void decodePatch(const uint8_t* data, size_t size) {
    quotes::v1::ModifySourceRequest message;
    if (!message.ParseFromArray(data, int(size)))
        return;
    int id = 0;
    Hlx::CSourcePatch patch;
    CRecordCodec::decodeSourcePatch(message, &id, &patch);
}

void decodeReply(const uint8_t* data, size_t size) {
    quotes::v1::LoginReply message;
    if (!message.ParseFromArray(data, int(size)))
        return;
    CRecordCodec::decodeError(message.error());
    CRecordCodec::decodeSubsystems(message.subsystems());
    std::map<int, bool> auth;
    CRecordCodec::decodeLoginTypeAuth(message.login_type_auth(), &auth);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    switch (data[0] % 4) {
        case 0:
            decodeRequest(data + 1, size - 1, &CRecordCodec::decodeOperate);
            break;
        case 1:
            decodeRequest(data + 1, size - 1, &CRecordCodec::decodeQuery);
            break;
        case 3:
            decodePatch(data + 1, size - 1);
            break;
        default:
            decodeReply(data + 1, size - 1);
    }
    return 0;
}
