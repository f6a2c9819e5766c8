#include "tests/support/Release.h"

#include "tests/support/HttpServer.h"
#include "tests/support/UpdaterProcess.h"

namespace release {

void lay(const Tree& tree, const QString& dir)
{
    files::makeDirectory(dir);
    for (auto file = tree.begin(); file != tree.end(); ++file)
        files::write(dir + '/' + file.key(), file.value());
}

Tree read(const QString& dir)
{
    Tree tree;
    const QStringList names = files::list(dir);
    for (const QString& name : names) {
        if (!name.endsWith('/'))
            tree.insert(name, files::read(dir + '/' + name));
    }
    return tree;
}

void describe(const QString& dir, const QString& name, const QString& version,
              const QStringList& furtherOptions)
{
    UpdaterProcess updater;
    const QStringList options{"-b", "-n", name, "-d", dir, "-v", version};
    if (updater.run(options + furtherOptions) != 0)
        qFatal("test fixture: cannot describe %s: %s", qPrintable(dir),
               updater.output().constData());
}

void serve(const QString& dir, HttpServer& server, const QString& path)
{
    const Tree tree = read(dir);
    for (auto file = tree.begin(); file != tree.end(); ++file)
        server.serve(path + '/' + file.key(), HttpReply::ok(file.value()));
}

QStringList differences(const Tree& actual, const Tree& expected)
{
    QStringList lines;
    for (auto file = expected.begin(); file != expected.end(); ++file) {
        if (!actual.contains(file.key()))
            lines.append("missing: " + file.key());
        else if (actual.value(file.key()) != file.value())
            lines.append("different: " + file.key());
    }
    for (auto file = actual.begin(); file != actual.end(); ++file) {
        if (!expected.contains(file.key()))
            lines.append("unexpected: " + file.key());
    }
    return lines;
}

} // namespace release
