#pragma once

#include <QString>
#include <vector>

#include "CCtlCommand.h"
#include "CCtlGlobals.h"

// A command's synopsis as the command table makes it ("sources modify ID [--port N] ..."), in
// pieces that know their role, so that --help writes it as text and the manual page in its fonts.
class CCtlSynopsis {
public:
    enum class Role { Word, Flag, Value, Plain };
    struct Piece {
        Role role;
        QString text;
    };
    // One word of the synopsis: "[--port N]" is "[", "--port", " ", "N", "]".
    using Token = std::vector<Piece>;

    explicit CCtlSynopsis(const CCtlCommand& command);

    const Token& words() const { return m_words; }
    // The documented options and the positional arguments outside the alternatives, in order.
    const std::vector<Token>& arguments() const { return m_arguments; }
    // Each set of alternative options.
    const std::vector<std::vector<Token>>& alternatives() const { return m_alternatives; }

    static Token option(const CCtlOption& option, bool required);
    // "--data DIR", "-h, --help"; as a synopsis shows it, "--login-password-file FILE|-".
    static Token global(CCtlGlobals::Id id, bool inSynopsis);
    static QString plain(const Token& token);

private:
    static Token positional(const CCtlCommand::Positional& positional);
    static Token value(CCtlOption::Kind kind, const QString& name);

    Token m_words;
    std::vector<Token> m_arguments;
    std::vector<std::vector<Token>> m_alternatives;
};
