// A manifest as a record and as a text, and how the tests of the writer and of the reader use both.
#ifndef TESTS_UNIT_MANIFESTEXAMPLES_H
#define TESTS_UNIT_MANIFESTEXAMPLES_H

#include "manifest/ManifestText.h"

#include "tests/support/LiteralReader.h"
#include "tests/support/Records.h"

#include <QTest>

/// The example of docs/version-file.md: what is read from, and written as, exampleText.
inline ProgramData exampleRecord()
{
    const QByteArray changelog = "Version 2.1\n- Faster start-up\n- Fixed printing\n";
    return {"Editor",
            "2.1",
            false,
            QString::fromLatin1(changelog.toBase64()),
            {{".hidden", "a9993e364706816aba3e25717850c26c9cd0d89d", 3},
             {"Contents/Resources/empty.dat", "da39a3ee5e6b4b0d3255bfef95601890afd80709", 0},
             {"Contents/Resources/readme.txt", "f572d396fae9206628714fb2ce00f72e94f2258f", 6}}};
}

inline const QString exampleText = R"(<Editor>
	<version>2.1</version>
	<required>false</required>
	<changelog>VmVyc2lvbiAyLjEKLSBGYXN0ZXIgc3RhcnQtdXAKLSBGaXhlZCBwcmludGluZwo=</changelog>
	<file>
		<name>.hidden</name>
		<sha1>a9993e364706816aba3e25717850c26c9cd0d89d</sha1>
		<size>3</size>
	</file>
	<file>
		<name>Contents/Resources/empty.dat</name>
		<sha1>da39a3ee5e6b4b0d3255bfef95601890afd80709</sha1>
		<size>0</size>
	</file>
	<file>
		<name>Contents/Resources/readme.txt</name>
		<sha1>f572d396fae9206628714fb2ce00f72e94f2258f</sha1>
		<size>6</size>
	</file>
</Editor>
)";

constexpr quint64 largestSize = 18446744073709551615U;

/// Returns @p data as manifest::write() writes it into an empty text.
inline QString written(const ProgramData& data)
{
    QString text;
    if (!manifest::write(data, text))
        return "refused";
    return text;
}

/// Reads @p text into @p data. The test fails when the literal reader gives another result.
inline bool read(const QString& text, ProgramData& data, const QString& rootTag = "Editor")
{
    ProgramData literalData = data;
    const bool literalResult = literal::read(rootTag, text, literalData);
    const bool result = manifest::read(rootTag, text, data);
    if (result != literalResult || !records::same(data, literalData))
        QTest::qFail("the literal reader disagrees", __FILE__, __LINE__);
    return result;
}

/// Returns the files of the record of Editor in @p text, each as "name|sha1|size".
inline QStringList filesRead(const QString& text)
{
    ProgramData data;
    return read(text, data) ? records::files(data) : QStringList{"nothing read"};
}

#endif // TESTS_UNIT_MANIFESTEXAMPLES_H
