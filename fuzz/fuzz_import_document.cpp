// libFuzzer target: the import document's parser and validator, fed any bytes as JSON.

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstddef>
#include <cstdint>

#include "CDataTransfer.h"
#include "CServiceError.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QJsonDocument document = QJsonDocument::fromJson(
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)));
    if (!document.isObject())
        return 0;
    try {
        CDataTransfer::parse(document.object());
    } catch (const CServiceError&) {
        // A refusal is an answer; anything else escaping is a finding.
    }
    return 0;
}
