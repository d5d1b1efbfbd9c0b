#include "CCtlCompletion.h"

#include "CCtlCommandTable.h"
#include "CCtlGlobals.h"

namespace {

using Kind = CCtlOption::Kind;
const int kWidth = 100;

QString spaces(int count) {
    return QString(count, QLatin1Char(' '));
}

// Words joined with separator, starting a new line (at indent) before one that would pass
// kWidth; a line that goes on ends with lineEnd.
QString wrap(const QStringList& words, const QString& separator, const QString& lineEnd, int indent,
             int column) {
    QString text;
    for (int i = 0; i < words.size(); ++i) {
        const QString piece = i + 1 < words.size() ? words[i] + separator : words[i];
        if (i > 0 && column + piece.size() + lineEnd.size() > kWidth) {
            while (text.endsWith(QLatin1Char(' ')))
                text.chop(1);
            text += (lineEnd.isEmpty() ? QString() : QLatin1Char(' ') + lineEnd) +
                    QLatin1Char('\n') + spaces(indent);
            column = indent;
        }
        text += piece;
        column += piece.size();
    }
    return text;
}

// The flags of the options (global and of the commands) whose values are of these kinds.
QStringList valuesOf(const QList<Kind>& kinds) {
    QStringList flags;
    for (const CCtlGlobals::Option& option : CCtlGlobals::options()) {
        if (kinds.contains(option.kind) && !flags.contains(QLatin1String(option.name)))
            flags << QLatin1String(option.name);
    }
    for (const CCtlOption& option : CCtlOption::all()) {
        if (kinds.contains(option.kind) && !flags.contains(option.flag()))
            flags << option.flag();
    }
    return flags;
}

QStringList documented(const CCtlCommand& command) {
    QStringList flags;
    for (const CCtlCommand::Option& option : command.options()) {
        if (option.presence == CCtlCommand::Presence::Optional ||
            option.presence == CCtlCommand::Presence::Required)
            flags << CCtlOption::of(option.id).flag();
    }
    return flags;
}

}  // namespace

QString CCtlCompletion::text() {
    return QStringLiteral(
               "# bash completion for quotesctl(1). Made from quotesctl's command table "
               "(CCtlCompletion):\n"
               "# a test fails when this file differs from it; QUOTES_UPDATE_GOLDEN=1 rewrites "
               "it.\n"
               "\n"
               "_quotesctl() {\n"
               "    local cur prev words cword\n"
               "    _init_completion || return\n\n") +
           optionValues() + commandAndVerb() + commandsOrGlobals() + keys() + arguments() +
           QStringLiteral("} &&\n    complete -F _quotesctl quotesctl\n");
}

QString CCtlCompletion::optionValues() {
    const auto arm = [](const QStringList& flags, const QString& action) {
        return QStringLiteral("        %1)\n%2            return\n            ;;\n")
            .arg(alternatives(flags, 12), action);
    };
    return QStringLiteral("    case $prev in\n") +
           arm(valuesOf({Kind::Directory}), QStringLiteral("            _filedir -d\n")) +
           arm(valuesOf({Kind::File, Kind::Input}), QStringLiteral("            _filedir\n")) +
           arm(valuesOf({Kind::Text, Kind::Int, Kind::Time, Kind::Secret, Kind::Rights}),
               QString()) +
           QStringLiteral("    esac\n\n");
}

QString CCtlCompletion::commandAndVerb() {
    return QStringLiteral(
               "    # The command and its verb are the first two words that are no option or "
               "option value.\n"
               "    local i command=\"\" verb=\"\"\n"
               "    for ((i = 1; i < cword; i++)); do\n"
               "        case ${words[i]} in\n"
               "            %1) ((i++)) ;;\n"
               "            -*) ;;\n"
               "            *)\n"
               "                if [[ -z $command ]]; then\n"
               "                    command=${words[i]}\n"
               "                elif [[ -z $verb ]]; then\n"
               "                    verb=${words[i]}\n"
               "                fi\n"
               "                ;;\n"
               "        esac\n"
               "    done\n\n")
        .arg(alternatives(valuesOf({Kind::Text, Kind::Int, Kind::Time, Kind::File, Kind::Directory,
                                    Kind::Input, Kind::Secret, Kind::Rights}),
                          16));
}

QString CCtlCompletion::commandsOrGlobals() {
    QStringList globals;
    for (const CCtlGlobals::Option& option : CCtlGlobals::options())
        globals << QLatin1String(option.name);
    return QStringLiteral(
               "    if [[ -z $command ]]; then\n"
               "        if [[ $cur == -* ]]; then\n"
               "            COMPREPLY=($(%1))\n"
               "        else\n"
               "            COMPREPLY=($(%2))\n"
               "        fi\n"
               "        return\n"
               "    fi\n\n")
        .arg(compgen(globals, 16), compgen(CCtlCommandTable::groups(), 16));
}

QString CCtlCompletion::keys() {
    // Groups with the same verbs share a line.
    QList<QStringList> groups;
    QList<QStringList> verbs;
    QString subcommands;
    for (const QString& group : CCtlCommandTable::groups()) {
        const QStringList actions = CCtlCommandTable::actions(group);
        if (actions.isEmpty())
            continue;
        if (CCtlCommandTable::find({group})) {
            subcommands +=
                QStringLiteral("        %1) [[ ! $verb =~ ^(%2)$ ]] || key=\"%1 $verb\" ;;\n")
                    .arg(group, actions.join(QLatin1Char('|')));
            continue;
        }
        const int same = verbs.indexOf(actions);
        if (same >= 0) {
            groups[same] << group;
        } else {
            groups << QStringList{group};
            verbs << actions;
        }
    }
    QString text = QStringLiteral(
        "    # Which command completes: a group's verb, else the word of a command of its own\n"
        "    # (and the word after it when that names a sub-command).\n"
        "    local key=$command verbs=\"\"\n"
        "    case $command in\n");
    for (int i = 0; i < groups.size(); ++i)
        text += QStringLiteral("        %1) verbs='%2' ;;\n")
                    .arg(groups[i].join(QStringLiteral(" | ")), verbs[i].join(QLatin1Char(' ')));
    return text + subcommands +
           QStringLiteral(
               "    esac\n"
               "    if [[ -n $verbs ]]; then\n"
               "        if [[ -z $verb ]]; then\n"
               "            COMPREPLY=($(compgen -W \"$verbs\" -- \"$cur\"))\n"
               "            return\n"
               "        fi\n"
               "        key=\"$command $verb\"\n"
               "    fi\n\n");
}

QString CCtlCompletion::arguments() {
    QString text = QStringLiteral("    case $key in\n");
    for (const CCtlCommand& command : CCtlCommandTable::all()) {
        const bool own = command.words().size() == 1;
        const bool offersSubcommands =
            own && !CCtlCommandTable::actions(command.words().front()).isEmpty();
        const QString body = argumentsOf(command, offersSubcommands);
        if (!body.isEmpty())
            text += QStringLiteral("        %1)\n%2            ;;\n")
                        .arg(own ? command.name()
                                 : QLatin1Char('"') + command.name() + QLatin1Char('"'),
                             body);
    }
    return text + QStringLiteral("    esac\n");
}

QString CCtlCompletion::argumentsOf(const CCtlCommand& command, bool offersSubcommands) {
    const QStringList options = documented(command);
    const CCtlCommand::Positional& positional = command.positionals();
    const bool files = positional.kind == CCtlCommand::PositionalKind::Input;
    QString body;
    if (files) {
        body = QStringLiteral(
                   "            if [[ $cur != -* ]]; then\n"
                   "                _filedir %1\n"
                   "                return\n"
                   "            fi\n")
                   .arg(positional.suffix)
                   .replace(QStringLiteral(" \n"), QStringLiteral("\n"));
    }
    if (!options.isEmpty())
        body += QStringLiteral("            COMPREPLY=($(%1))\n").arg(compgen(options, 16));
    if (offersSubcommands)
        body += QStringLiteral("            [[ -n $verb ]] || COMPREPLY+=($(%1))\n")
                    .arg(compgen(CCtlCommandTable::actions(command.words().front()), 16));
    return body;
}

QString CCtlCompletion::alternatives(const QStringList& words, int indent) {
    return wrap(words, QStringLiteral(" | "), QStringLiteral("\\"), indent, indent);
}

QString CCtlCompletion::compgen(const QStringList& words, int indent) {
    return QStringLiteral("compgen -W '%1' -- \"$cur\"")
        .arg(wrap(words, QStringLiteral(" "), QString(), indent, indent + 24));
}
