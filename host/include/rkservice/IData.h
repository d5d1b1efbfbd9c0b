#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace rkservice {

class IData;
typedef boost::shared_ptr<IData> IDataPtr;

// The generic record the data service exchanges. Each record read from a server carries the
// name of its sub-system as its system tag and, beside it, the stored revision it was read at
// (0: none), which a modify or delete sends back so that a change made meanwhile by someone else
// is refused instead of overwritten.
class IData {
public:
    virtual ~IData();

    const std::string& getSystemTag() const { return m_systemTag; }
    void setSystemTag(const std::string& tag) { m_systemTag = tag; }
    long long getRevision() const { return m_revision; }
    void setRevision(long long revision) { m_revision = revision; }

    // A deep copy, so a request can be taken over by another thread while the sender keeps its own.
    virtual IDataPtr clone() const = 0;

private:
    std::string m_systemTag;
    long long m_revision = 0;
};

typedef std::vector<IDataPtr> IDataList;

// Deep copies of every record of a list.
IDataList cloneAll(const IDataList& datas);

}  // namespace rkservice
