#include "CDatabaseUrl.h"

#include <QDir>
#include <QStringList>
#include <QUrl>
#include <QUrlQuery>

bool CDatabaseUrl::parse(const QString& url, const QString& dataDir, CDatabaseUrl* out,
                         QString* error) {
    const QString text = url.trimmed();
    *out = CDatabaseUrl();
    if (text.startsWith(QLatin1String("postgresql://")) ||
        text.startsWith(QLatin1String("postgres://")))
        return out->parsePostgres(text, error);
    if (text.startsWith(QLatin1String("sqlite://"))) {
        out->filePath = QUrl(text).path();
    } else if (!text.isEmpty()) {
        *error = QStringLiteral("不支持的数据库地址: %1").arg(text.section(QLatin1Char(':'), 0, 0));
        return false;
    } else {
        out->filePath = QDir(dataDir).filePath(QStringLiteral("quotes.db"));
        out->inDataDirectory = true;
    }
    if (out->filePath.isEmpty()) {
        *error = QStringLiteral("数据库地址缺少文件路径");
        return false;
    }
    return true;
}

bool CDatabaseUrl::parsePostgres(const QString& url, QString* error) {
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid()) {
        *error = QStringLiteral("数据库地址格式错误");
        return false;
    }
    postgres = true;
    user = parsed.userName();
    password = parsed.password();
    host = parsed.host();
    port = parsed.port(-1);
    database = parsed.path().mid(1);
    QStringList extra;
    for (const auto& item : QUrlQuery(parsed).queryItems(QUrl::FullyDecoded)) {
        if (item.first == QLatin1String("host"))
            host = item.second;
        else if (item.first == QLatin1String("port"))
            port = item.second.toInt();
        else if (item.first == QLatin1String("user"))
            user = item.second;
        else if (item.first == QLatin1String("password"))
            password = item.second;
        else if (item.first == QLatin1String("dbname"))
            database = item.second;
        else
            extra << item.first + QLatin1Char('=') + item.second;
    }
    if (database.isEmpty()) {
        *error = QStringLiteral("数据库地址缺少数据库名");
        return false;
    }
    // A server that goes away without a word is noticed: keepalives on an idle connection, and
    // a bound on unacknowledged data while a statement is sent. The URL may set each otherwise.
    const QStringList defaults = {QStringLiteral("connect_timeout=5"),
                                  QStringLiteral("keepalives=1"),
                                  QStringLiteral("keepalives_idle=30"),
                                  QStringLiteral("keepalives_interval=10"),
                                  QStringLiteral("keepalives_count=3"),
                                  QStringLiteral("tcp_user_timeout=30000"),
                                  QStringLiteral("application_name=quotes-service")};
    for (const QString& option : defaults) {
        const QString key = option.section(QLatin1Char('='), 0, 0) + QLatin1Char('=');
        bool given = false;
        for (const QString& item : extra)
            given = given || item.startsWith(key);
        if (!given)
            extra << option;
    }
    options = extra.join(QLatin1Char(';'));
    return true;
}

bool CDatabaseUrl::hasPassword(const QString& url) {
    const QUrl parsed(url.trimmed());
    return !parsed.password().isEmpty() ||
           QUrlQuery(parsed).hasQueryItem(QStringLiteral("password"));
}
