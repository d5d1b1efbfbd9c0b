#include "bson/BSONObj.h"

#include <bson/bson.h>

namespace bson {

BSONObj::BSONObj() : m_doc(bson_new()) {}

BSONObj::BSONObj(const BSONObj& other) : m_doc(bson_copy(other.m_doc)) {}

BSONObj& BSONObj::operator=(const BSONObj& other) {
    if (this != &other) {
        bson_t* copy = bson_copy(other.m_doc);
        bson_destroy(m_doc);
        m_doc = copy;
    }
    return *this;
}

BSONObj::~BSONObj() {
    bson_destroy(m_doc);
}

bool BSONObj::isEmpty() const {
    return bson_empty(m_doc);
}

int BSONObj::nFields() const {
    return int(bson_count_keys(m_doc));
}

void BSONObj::appendInt(const std::string& key, int value) {
    bson_append_int32(m_doc, key.c_str(), int(key.size()), value);
}

void BSONObj::appendString(const std::string& key, const std::string& value) {
    bson_append_utf8(m_doc, key.c_str(), int(key.size()), value.c_str(), int(value.size()));
}

bool BSONObj::hasField(const std::string& key) const {
    return bson_has_field(m_doc, key.c_str());
}

int BSONObj::getIntField(const std::string& key, int fallback) const {
    bson_iter_t iter;
    if (bson_iter_init_find(&iter, m_doc, key.c_str()) && BSON_ITER_HOLDS_INT32(&iter))
        return bson_iter_int32(&iter);
    return fallback;
}

std::string BSONObj::getStringField(const std::string& key) const {
    bson_iter_t iter;
    if (bson_iter_init_find(&iter, m_doc, key.c_str()) && BSON_ITER_HOLDS_UTF8(&iter)) {
        uint32_t length = 0;
        const char* text = bson_iter_utf8(&iter, &length);
        return std::string(text, length);
    }
    return std::string();
}

std::string BSONObj::jsonString() const {
    size_t length = 0;
    char* json = bson_as_canonical_extended_json(m_doc, &length);
    std::string result(json ? json : "", json ? length : 0);
    bson_free(json);
    return result;
}

}  // namespace bson
