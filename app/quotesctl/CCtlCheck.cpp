#include "CCtlCheck.h"

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlGlobals.h"

namespace {

using Presence = CCtlCommand::Presence;
using PositionalKind = CCtlCommand::PositionalKind;

QString flag(CCtlOption::Id id) {
    return CCtlOption::of(id).flag();
}

std::vector<CCtlCommand::Option> alternativeSet(const CCtlCommand& command, int alternative) {
    std::vector<CCtlCommand::Option> set;
    for (const CCtlCommand::Option& option : command.options()) {
        if (option.alternative == alternative)
            set.push_back(option);
    }
    return set;
}

// "--address and --port": the set's required options.
QString requiredOf(const std::vector<CCtlCommand::Option>& set) {
    QStringList flags;
    for (const CCtlCommand::Option& option : set) {
        if (option.presence == Presence::Required)
            flags << flag(option.id);
    }
    return flags.join(QLatin1String(" and "));
}

bool missesRequired(const std::vector<CCtlCommand::Option>& set, const CCtlArguments& arguments) {
    for (const CCtlCommand::Option& option : set) {
        if (option.presence == Presence::Required && !arguments.has(option.id))
            return true;
    }
    return false;
}

}  // namespace

void CCtlCheck::standard(const CCtlCommand& command, const CCtlArguments& arguments,
                         const CCtlGlobals&) {
    arity(command, arguments);
    presence(command, arguments);
    values(command, arguments);
}

void CCtlCheck::arity(const CCtlCommand& command, const CCtlArguments& arguments) {
    const CCtlCommand::Positional& positional = command.positionals();
    const QStringList& given = arguments.positional();
    const int count = given.size();
    if (count >= positional.min && (positional.max < 0 || count <= positional.max))
        return;
    if (!command.arityMessage().isEmpty())
        throw CCtlError::usage(command.arityMessage());
    const bool tooMany = positional.max >= 0 && count > positional.max;
    if (tooMany && (positional.max == 0 || positional.min != positional.max))
        throw CCtlError::usage(
            QStringLiteral("unexpected argument \"%1\"").arg(given.at(positional.max)));
    const QString needs = positional.min == positional.max
                              ? QStringLiteral("%1 needs one %2")
                              : QStringLiteral("%1 needs at least one %2");
    throw CCtlError::usage(needs.arg(command.name(), positional.name));
}

void CCtlCheck::presence(const CCtlCommand& command, const CCtlArguments& arguments) {
    for (const CCtlCommand::Option& option : command.options()) {
        const bool given = arguments.has(option.id);
        const bool missing =
            option.presence == Presence::Required && option.alternative == 0 && !given;
        if (missing || (option.presence == Presence::Refused && given))
            throw CCtlError::usage(command.presenceMessage(option));
    }
}

void CCtlCheck::values(const CCtlCommand& command, const CCtlArguments& arguments) {
    for (CCtlOption::Id id : arguments.given()) {
        const CCtlCommand::Option* option = command.find(id);
        if (option && option->presence == Presence::Ignored)
            continue;
        const QString problem = CCtlOption::of(id).problem(arguments.text(id));
        if (!problem.isEmpty())
            throw CCtlError::usage(problem);
    }
    if (command.positionals().kind != PositionalKind::SourceId)
        return;
    for (const QString& id : arguments.positional()) {
        bool ok = false;
        id.toInt(&ok, 10);
        if (!ok)
            throw CCtlError::usage(QStringLiteral("\"%1\" is not a source id").arg(id));
    }
}

void CCtlCheck::alternatives(const CCtlCommand& command, const CCtlArguments& arguments) {
    const std::vector<CCtlCommand::Option> first = alternativeSet(command, 1);
    const std::vector<CCtlCommand::Option> second = alternativeSet(command, 2);
    if (first.empty() || second.empty())
        return;
    const CCtlOption::Id chooser = second.front().id;
    if (arguments.has(chooser)) {
        for (const CCtlCommand::Option& option : second) {
            if (option.presence == Presence::Required && !arguments.has(option.id))
                throw CCtlError::usage(
                    QStringLiteral("%1 needs %2").arg(flag(chooser), flag(option.id)));
        }
        for (const CCtlCommand::Option& option : first) {
            if (arguments.has(option.id))
                throw CCtlError::usage(
                    QStringLiteral("%1 does not go with %2").arg(flag(option.id), flag(chooser)));
        }
        return;
    }
    if (missesRequired(first, arguments))
        throw CCtlError::usage(QStringLiteral("%1 needs %2, or %3")
                                   .arg(command.name(), requiredOf(first), requiredOf(second)));
    for (const CCtlCommand::Option& option : second) {
        if (arguments.has(option.id))
            throw CCtlError::usage(
                QStringLiteral("%1 needs %2").arg(flag(option.id), flag(chooser)));
    }
}

void CCtlCheck::exclusive(CCtlOption::Id first, CCtlOption::Id second,
                          const CCtlArguments& arguments) {
    if (arguments.has(first) && arguments.has(second))
        throw CCtlError::usage(
            QStringLiteral("%1 and %2 exclude each other").arg(flag(first), flag(second)));
}

bool CCtlCheck::namesAnOption(const CCtlCommand& command, const CCtlArguments& arguments) {
    for (const CCtlCommand::Option& option : command.options()) {
        const bool counts =
            option.presence != Presence::Refused && option.presence != Presence::Ignored;
        if (counts && arguments.has(option.id))
            return true;
    }
    return false;
}

void CCtlCheck::inputs(const CCtlCommand& command, const CCtlArguments& arguments,
                       const CCtlGlobals& globals) {
    int readers = globals.inputReaders();
    for (CCtlOption::Id id : arguments.given())
        readers += CCtlOption::of(id).readsStandardInput(arguments.text(id)) ? 1 : 0;
    const PositionalKind kind = command.positionals().kind;
    if (kind == PositionalKind::Input || kind == PositionalKind::SecretInput)
        readers += arguments.positional().count(QStringLiteral("-"));
    if (readers > 1)
        throw CCtlError::usage(QStringLiteral("only one input may be read from standard input"));
}

QStringList CCtlCheck::warnings(const CCtlCommand& command, const CCtlArguments& arguments,
                                const CCtlGlobals& globals) {
    QStringList warnings;
    for (CCtlOption::Id id : arguments.given()) {
        const CCtlOption& option = CCtlOption::of(id);
        if (option.kind != CCtlOption::Kind::Secret)
            continue;
        const CCtlOption& safer = CCtlOption::of(option.saferInput);
        warnings << CCtlArguments::exposed(
            option.flag(), QStringLiteral("use %1 %2 (or - for standard input) instead")
                               .arg(safer.flag(), QLatin1String(safer.metavar)));
    }
    if (command.positionals().kind == PositionalKind::SecretInput) {
        for (const QString& argument : arguments.positional()) {
            if (argument != QLatin1String("-"))
                warnings << CCtlArguments::exposed(
                    QStringLiteral("the ") + command.positionals().name.toLower(),
                    QStringLiteral("use %1 - (standard input) instead").arg(command.name()));
        }
    }
    return warnings + globals.warnings();
}
