#include "tests/support/Mounts.h"

#include "tests/support/Command.h"
#include "tests/support/Files.h"

namespace mounts {

std::optional<QStringList> commandInNamespace()
{
    const QList<QStringList> namespaces{{"unshare", "--mount"},
                                        {"unshare", "--map-root-user", "--mount"}};
    const TestDir trial;
    for (const QStringList& command : namespaces) {
        const QStringList mount{"mount", "-t", "tmpfs", "none", trial.path()};
        if (runCommand(command + mount).status == 0)
            return command;
    }
    return std::nullopt;
}

std::optional<QStringList> commandWithTmpfs(const QString& point, const QString& mountOptions,
                                            const QString& copy)
{
    const auto command = commandInNamespace();
    if (!command)
        return std::nullopt;
    const QString script = "mkdir \"$0.before\" && cp -a \"$0/.\" \"$0.before\" &&\n"
                           "mount -t tmpfs -o \"$1\" none \"$0\" &&\n"
                           "cp -a \"$0.before/.\" \"$0\" || exit 99\n"
                           "copy=$2\n"
                           "shift 2\n"
                           "[ -n \"$copy\" ] || exec \"$@\"\n"
                           "\"$@\"\n"
                           "status=$?\n"
                           "cp -a \"$0/.\" \"$copy\"\n"
                           "exit $status\n";
    return *command + QStringList{"sh", "-c", script, point, mountOptions, copy};
}

std::optional<QStringList> commandWithDirectory(const QString& source, const QString& point)
{
    const auto command = commandInNamespace();
    if (!command)
        return std::nullopt;
    const QString script = "mount --bind \"$0\" \"$1\" && shift && exec \"$@\"";
    return *command + QStringList{"sh", "-c", script, source, point};
}

} // namespace mounts
