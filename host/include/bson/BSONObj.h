#pragma once

#include <string>

struct _bson_t;

namespace bson {

// A BSON document by value: owns its bson_t, copies deeply, empty by default.
class BSONObj {
public:
    BSONObj();
    BSONObj(const BSONObj& other);
    BSONObj& operator=(const BSONObj& other);
    ~BSONObj();

    bool isEmpty() const;
    int nFields() const;
    void appendInt(const std::string& key, int value);
    void appendString(const std::string& key, const std::string& value);
    bool hasField(const std::string& key) const;
    int getIntField(const std::string& key, int fallback = 0) const;
    std::string getStringField(const std::string& key) const;
    std::string jsonString() const;

private:
    _bson_t* m_doc;
};

}  // namespace bson
