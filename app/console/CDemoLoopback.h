#pragma once

#include <QObject>
#include <QString>
#include <vector>

class CQuotesService;
class QTcpServer;

// What the demo's status dock shows beside its documentation addresses (never probed): two
// sources whose loopback port answers, listened on by the console itself while it runs, and one
// whose loopback port is closed. The system chooses the ports; a restart binds the ones stored
// before, so the sources change (an audited modify) only when another program took a port.
class CDemoLoopback : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kAddress = "127.0.0.1";
    static constexpr const char* kSubsystem = "sys1";
    // The sources' user names tell them from the operator's own: two listened on, one closed.
    static constexpr const char* kUsers[] = {"local_open1", "local_open2", "local_closed"};
    static constexpr int kListened = 2;

    explicit CDemoLoopback(QObject* parent = nullptr);
    ~CDemoLoopback() override;

    // Listens, stores the sources where they differ, and lets the service's prober contact
    // loopback; false with a message when a port or a source could not be had.
    bool start(CQuotesService& service, QString* error);
    // The ports of the sources, in the order of kUsers.
    std::vector<int> ports() const { return m_ports; }

private:
    struct Stored {
        int id = 0;
        int port = 0;
    };
    static std::vector<Stored> stored(CQuotesService& service, QString* error);
    // Listens on the port (any when it is taken or 0); the port listened on, or 0.
    int listen(QTcpServer* server, int preferred);
    static int closedPort(int preferred);
    static bool place(CQuotesService& service, const std::vector<Stored>& stored,
                      const std::vector<int>& ports, QString* error);
    void acceptAll(QTcpServer* server);

    std::vector<QTcpServer*> m_servers;
    std::vector<int> m_ports;
};
