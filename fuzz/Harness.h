// What the fuzz targets share: the parts of an input, and the application object.
#ifndef FUZZ_HARNESS_H
#define FUZZ_HARNESS_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>

namespace fuzz {

inline QList<QByteArray> linesOf(const std::uint8_t* bytes, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(bytes), static_cast<int>(size)).split('\n');
}

/// Any line is a number; one of digits is that number.
inline quint64 numberFrom(const QByteArray& line)
{
    quint64 number = 0;
    for (const char c : line)
        number = number * 10 + (static_cast<std::uint8_t>(c) & 0xfU);
    return number;
}

/// The tags below the root of a manifest. The corpora depend on their order.
inline const QStringList& tags()
{
    static const QStringList all{"<version>",   "</version>",   "<required>", "</required>",
                                 "<changelog>", "</changelog>", "<file>",     "</file>",
                                 "<name>",      "</name>",      "<sha1>",     "</sha1>",
                                 "<size>",      "</size>"};
    return all;
}

inline bool isSeparator(QChar c)
{
    return c == '/' || c == '\\';
}

/// Makes the application object, unless it is there already. It is never destroyed: at the end of
/// the process Qt 6.8's own static objects would be gone before it.
template <typename Application> void makeApplication()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char* argv[] = {name, nullptr};
    qputenv("LC_ALL", "C.UTF-8");
    static const auto* const app = new Application(argc, argv);
    Q_UNUSED(app)
}

} // namespace fuzz

#endif // FUZZ_HARNESS_H
