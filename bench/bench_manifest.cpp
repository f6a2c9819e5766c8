// What writing and reading a manifest costs, and how the cost grows with the number of files.
// Qt's XML classes do the same beside each.

#include "bench/BenchmarkMain.h"
#include "manifest/ManifestText.h"

#include <QCoreApplication>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>

namespace {

ProgramData record(int files)
{
    ProgramData data;
    data.name = QStringLiteral("Editor");
    data.version = QStringLiteral("2.1");
    data.changelog = QString(2000, QLatin1Char('Q'));
    for (int number = 0; number < files; ++number) {
        ProgramFile file;
        file.name = QStringLiteral("Contents/Resources/%1.dat").arg(number);
        file.sha1 = QString::number(number, 16).rightJustified(40, QLatin1Char('0'));
        file.size = static_cast<quint64>(number);
        data.files.append(file);
    }
    return data;
}

QString textOf(const ProgramData& data)
{
    QString text;
    manifest::write(data, text);
    return text;
}

bool isSame(const ProgramData& one, const ProgramData& other)
{
    return one.name == other.name && one.version == other.version &&
           one.required == other.required && one.changelog == other.changelog &&
           std::equal(one.files.begin(), one.files.end(), other.files.begin(), other.files.end(),
                      [](const ProgramFile& file, const ProgramFile& otherFile) {
                          return file.name == otherFile.name && file.sha1 == otherFile.sha1 &&
                                 file.size == otherFile.size;
                      });
}

QString textByXmlWriter(const ProgramData& data)
{
    QString text;
    QXmlStreamWriter xml(&text);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(-1); // One tab.
    xml.writeStartElement(data.name);
    xml.writeTextElement(QStringLiteral("version"), data.version);
    xml.writeTextElement(QStringLiteral("required"),
                         data.required ? QStringLiteral("true") : QStringLiteral("false"));
    xml.writeTextElement(QStringLiteral("changelog"), data.changelog);
    for (const ProgramFile& file : data.files) {
        xml.writeStartElement(QStringLiteral("file"));
        xml.writeTextElement(QStringLiteral("name"), file.name);
        xml.writeTextElement(QStringLiteral("sha1"), file.sha1);
        xml.writeTextElement(QStringLiteral("size"), QString::number(file.size));
        xml.writeEndElement();
    }
    xml.writeEndElement();
    return text;
}

ProgramFile fileByXmlReader(QXmlStreamReader& xml)
{
    ProgramFile file;
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("name"))
            file.name = xml.readElementText().trimmed();
        else if (xml.name() == QLatin1String("sha1"))
            file.sha1 = xml.readElementText().trimmed();
        else if (xml.name() == QLatin1String("size"))
            file.size = xml.readElementText().trimmed().toULongLong();
        else
            xml.skipCurrentElement();
    }
    return file;
}

ProgramData recordByXmlReader(const QString& text)
{
    ProgramData data;
    QXmlStreamReader xml(text);
    if (xml.readNextStartElement())
        data.name = xml.name().toString();
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("version"))
            data.version = xml.readElementText().trimmed();
        else if (xml.name() == QLatin1String("required"))
            data.required = xml.readElementText().trimmed() == QLatin1String("true");
        else if (xml.name() == QLatin1String("changelog"))
            data.changelog = xml.readElementText().trimmed();
        else if (xml.name() == QLatin1String("file"))
            data.files.append(fileByXmlReader(xml));
        else
            xml.skipCurrentElement();
    }
    return data;
}

void write(benchmark::State& state)
{
    const ProgramData data = record(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(textOf(data));
    if (!isSame(recordByXmlReader(textOf(data)), data))
        state.SkipWithError("wrong text");
    finish(state);
}

void read(benchmark::State& state, const QString& betweenFiles)
{
    const ProgramData expected = record(static_cast<int>(state.range(0)));
    const QString text =
        textOf(expected).replace(QLatin1String("</file>"), QLatin1String("</file>") + betweenFiles);
    ProgramData data;
    for (auto _ : state) {
        data = ProgramData();
        manifest::read(QStringLiteral("Editor"), text, data);
    }
    if (!isSame(data, expected))
        state.SkipWithError("wrong record");
    finish(state);
}

void writeByXmlWriter(benchmark::State& state)
{
    const ProgramData data = record(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(textByXmlWriter(data));
    if (textByXmlWriter(data).trimmed() != textOf(data).trimmed())
        state.SkipWithError("another text");
    finish(state);
}

void readByXmlReader(benchmark::State& state)
{
    const ProgramData expected = record(static_cast<int>(state.range(0)));
    const QString text = textOf(expected);
    ProgramData data;
    for (auto _ : state)
        data = recordByXmlReader(text);
    if (!isSame(data, expected))
        state.SkipWithError("wrong record");
    finish(state);
}

/// The cost of one extraction with removal at the head of a text of so many files.
void extract(benchmark::State& state)
{
    const QString text = textOf(record(static_cast<int>(state.range(0))));
    QString source;
    QString value;
    for (auto _ : state) {
        source = text;
        value = manifest::tagValue(QStringLiteral("file"), source, true, nullptr);
    }
    if (!value.contains(QLatin1String("/0.dat<")) || source.contains(QLatin1String("/0.dat<")))
        state.SkipWithError("wrong element");
    finish(state);
}

BENCHMARK(write)->Apply(sizes);
BENCHMARK(writeByXmlWriter)->Apply(sizes);
BENCHMARK_CAPTURE(read, asWritten, QString())->Apply(sizes);
BENCHMARK(readByXmlReader)->Apply(sizes);
BENCHMARK_CAPTURE(read, withTextBetweenFiles, QStringLiteral(" text "))->Apply(sizes);
BENCHMARK(extract)->Apply(sizes);

} // namespace

UPDATER_BENCHMARK_MAIN(QCoreApplication)
