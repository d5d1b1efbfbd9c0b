#include "CCtlSynopsis.h"

namespace {

using Role = CCtlSynopsis::Role;
using Token = CCtlSynopsis::Token;

Token optional(Token token) {
    token.insert(token.begin(), {Role::Plain, QStringLiteral("[")});
    token.push_back({Role::Plain, QStringLiteral("]")});
    return token;
}

}  // namespace

CCtlSynopsis::CCtlSynopsis(const CCtlCommand& command) {
    m_words = {{Role::Word, command.name()}};
    const CCtlCommand::Positional& positional = command.positionals();
    const std::vector<CCtlCommand::Option>& options = command.options();
    for (size_t i = 0; i <= options.size(); ++i) {
        if (int(i) == positional.at && positional.kind != CCtlCommand::PositionalKind::None)
            m_arguments.push_back(this->positional(positional));
        if (i == options.size())
            break;
        const CCtlCommand::Option& o = options[i];
        const bool required = o.presence == CCtlCommand::Presence::Required;
        if (!required && o.presence != CCtlCommand::Presence::Optional)
            continue;
        const Token token = option(CCtlOption::of(o.id), required);
        if (o.alternative == 0) {
            m_arguments.push_back(token);
            continue;
        }
        if (int(m_alternatives.size()) < o.alternative)
            m_alternatives.resize(size_t(o.alternative));
        m_alternatives[size_t(o.alternative - 1)].push_back(token);
    }
}

Token CCtlSynopsis::value(CCtlOption::Kind kind, const QString& name) {
    if (kind == CCtlOption::Kind::Input)
        return {{Role::Value, name},
                {Role::Plain, QStringLiteral("|")},
                {Role::Flag, QStringLiteral("-")}};
    return {{Role::Value, name}};
}

Token CCtlSynopsis::option(const CCtlOption& option, bool required) {
    Token token = {{Role::Flag, option.flag()}};
    if (option.takesValue()) {
        token.push_back({Role::Plain, QStringLiteral(" ")});
        const Token metavar = value(option.kind, QLatin1String(option.metavar));
        token.insert(token.end(), metavar.begin(), metavar.end());
    }
    return required ? token : optional(token);
}

Token CCtlSynopsis::global(CCtlGlobals::Id id, bool inSynopsis) {
    const CCtlGlobals::Option& o = CCtlGlobals::option(id);
    if (*o.alias)
        return {{Role::Flag, QLatin1String(o.alias)},
                {Role::Plain, QStringLiteral(", ")},
                {Role::Flag, QLatin1String(o.name)}};
    Token token = {{Role::Flag, QLatin1String(o.name)}, {Role::Plain, QStringLiteral(" ")}};
    const Token metavar = inSynopsis ? value(o.kind, QLatin1String(o.metavar))
                                     : Token{{Role::Value, QLatin1String(o.metavar)}};
    token.insert(token.end(), metavar.begin(), metavar.end());
    return token;
}

Token CCtlSynopsis::positional(const CCtlCommand::Positional& positional) {
    const Piece name = {Role::Value, positional.name};
    switch (positional.kind) {
        case CCtlCommand::PositionalKind::SecretInput:
            return {{Role::Flag, QStringLiteral("-")}, {Role::Plain, QStringLiteral("|")}, name};
        case CCtlCommand::PositionalKind::SourceId:
            if (positional.max < 0)
                return {name,
                        {Role::Plain, QStringLiteral(" [")},
                        name,
                        {Role::Plain, QStringLiteral("...]")}};
            return {name};
        default:
            return {name};
    }
}

QString CCtlSynopsis::plain(const Token& token) {
    QString text;
    for (const Piece& piece : token)
        text += piece.text;
    return text;
}
