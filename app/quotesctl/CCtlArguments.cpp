#include "CCtlArguments.h"

QString CCtlArguments::take(const QStringList& arguments,
                            const std::set<CCtlOption::Id>& accepted) {
    m_values.clear();
    m_positional.clear();
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (!argument.startsWith(QLatin1String("--"))) {
            m_positional << argument;
            continue;
        }
        const CCtlOption* option = CCtlOption::named(argument.mid(2));
        if (!option || !accepted.count(option->id))
            return QStringLiteral("unknown option %1").arg(argument);
        if (!option->takesValue()) {
            m_values[option->id] = QString();
        } else if (i + 1 >= arguments.size()) {
            return QStringLiteral("option %1 needs a value").arg(argument);
        } else {
            m_values[option->id] = arguments[++i];
        }
    }
    return QString();
}

QString CCtlArguments::text(CCtlOption::Id id) const {
    const auto it = m_values.find(id);
    return it == m_values.end() ? QString() : it->second;
}

bool CCtlArguments::number(CCtlOption::Id id, int* value) const {
    if (!has(id))
        return false;
    *value = text(id).toInt(nullptr, 10);
    return true;
}

long long CCtlArguments::time(CCtlOption::Id id) const {
    long long ms = 0;
    if (has(id))
        CCtlOption::parseTime(text(id), &ms);
    return ms;
}

std::set<int> CCtlArguments::rights(CCtlOption::Id id) const {
    std::set<int> rights;
    CCtlOption::parseRights(text(id), &rights);
    return rights;
}

std::vector<CCtlOption::Id> CCtlArguments::given() const {
    std::vector<CCtlOption::Id> ids;
    for (const auto& value : m_values)
        ids.push_back(value.first);
    return ids;
}

QStringList CCtlArguments::describe() const {
    std::map<QString, QString> byName;
    for (const auto& value : m_values) {
        const CCtlOption& option = CCtlOption::of(value.first);
        byName[QLatin1String(option.name)] =
            option.takesValue()
                ? QStringLiteral("option %1 %2").arg(option.flag(), quoted(value.second))
                : QStringLiteral("option %1").arg(option.flag());
    }
    QStringList lines;
    for (const auto& line : byName)
        lines << line.second;
    for (const QString& argument : m_positional)
        lines << QStringLiteral("positional ") + quoted(argument);
    return lines;
}

QString CCtlArguments::quoted(const QString& value) {
    QString text = QStringLiteral("\"");
    for (const QChar c : value) {
        if (c == QLatin1Char('"') || c == QLatin1Char('\\'))
            text += QLatin1Char('\\') + QString(c);
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            text += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            text += c;
    }
    return text + QLatin1Char('"');
}

QString CCtlArguments::exposed(const QString& what, const QString& instead) {
    return QStringLiteral("%1 is on the command line, where other local users can read it; %2")
        .arg(what, instead);
}
