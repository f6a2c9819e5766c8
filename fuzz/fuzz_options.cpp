// The command line against a model of its rules, on argument vectors that libFuzzer thinks of.
//
// A line of the input is an argument. `--cleanup` deletes files, so the program is in a directory
// of its own meanwhile. The only "/" in an argument is that of "sub/", written as the byte 0x80, so
// no path leads out. unlink() below sees every removal and checks that.

#include "app/Options.h"

#include "fuzz/Disagreement.h"
#include "fuzz/Harness.h"
#include "tests/support/Files.h"
#include "tests/support/Messages.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <map>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Words = std::vector<std::string>;

/// The removals that were tried.
struct
{
    bool watched = false;
    Words paths;
} removals;

} // namespace

extern "C" int unlink(const char* path) noexcept
{
    if (removals.watched) {
        removals.paths.emplace_back(path);
        if (path[0] == '/')
            fuzz::disagree("a file elsewhere is deleted", QString::fromLocal8Bit(path));
    }
    return ::unlinkat(AT_FDCWD, path, 0);
}

namespace {

const std::set<std::string> allFiles{"a", "b", "c d", "notes.txt", "sub/e", "\xC3\xB6"};
const std::set<std::string> directories{".", "..", "sub", "sub/", "sub/.", "sub/.."};

/// The directory that the program is in while a command line is parsed.
class Playground
{
public:
    Playground()
        : m_outside(::open(".", O_RDONLY | O_DIRECTORY))
        , m_inside(::open(QFile::encodeName(m_dir.path()).constData(), O_RDONLY | O_DIRECTORY))
    {
        files::makeDirectory(m_dir / "sub");
    }

    void enter()
    {
        if (::fchdir(m_inside) != 0)
            std::abort();
        for (const std::string& file : allFiles) {
            if (!exists(file))
                ::close(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        }
        removals = {true, {}};
    }

    static std::set<std::string> filesLeft()
    {
        std::set<std::string> left;
        std::copy_if(allFiles.begin(), allFiles.end(), std::inserter(left, left.end()), exists);
        return left;
    }

    void leave()
    {
        removals.watched = false;
        if (::fchdir(m_outside) != 0)
            std::abort();
    }

private:
    static bool exists(const std::string& file) { return ::access(file.c_str(), F_OK) == 0; }

    TestDir m_dir;
    int m_outside;
    int m_inside;
};

/// What a command line leads to.
struct Outcome
{
    bool accepted = true;
    std::map<char, QString> values; ///< By letter; the changelog's file is "-".
    std::set<char> flags;
    QStringList messages;
    Words removals;
    std::set<std::string> filesLeft;

    QString described() const
    {
        QStringList lines{accepted ? "accepted" : "rejected"};
        for (const auto& [letter, value] : values) {
            if (!value.isEmpty())
                lines += QString(letter) + " \"" + records::escaped(value) + '"';
        }
        for (const char flag : flags)
            lines += QString("flag ") + flag;
        for (const QString& message : messages)
            lines += "message \"" + records::escaped(message) + '"';
        for (const std::string& path : removals)
            lines += "removal of \"" + records::escaped(QString::fromStdString(path)) + '"';
        for (const std::string& file : filesLeft)
            lines += "left \"" + records::escaped(QString::fromStdString(file)) + '"';
        return lines.join('\n') + '\n';
    }
};

std::string unquoted(const std::string& text)
{
    const bool inQuotes = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return inQuotes ? text.substr(1, text.size() - 2) : text;
}

std::string lowerCase(std::string text)
{
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

/// Returns @p bytes as Qt reads and writes them: what is not a character is replaced.
std::string asLocalText(const std::string& bytes)
{
    return QString::fromLocal8Bit(bytes.c_str()).toLocal8Bit().toStdString();
}

/// The rules of the command line.
class Model
{
public:
    static Outcome of(const Words& words)
    {
        Model model;
        model.m_outcome.filesLeft = allFiles;
        model.m_outcome.accepted = model.follow(words);
        return model.m_outcome;
    }

private:
    bool follow(const Words& words)
    {
        for (std::size_t i = 0; i < words.size(); ++i) {
            const std::string& word = words[i];
            if (word.substr(0, 1) != "-")
                continue;
            if (word == "-")
                return false;
            const char letter = word[1];
            const bool last = i + 1 == words.size();
            const bool isFlag = std::string("bcru").find(letter) != std::string::npos;
            const bool takesValue = std::string("dlnsvx").find(letter) != std::string::npos;
            if (isFlag) {
                m_outcome.flags.insert(letter);
            } else if (takesValue) {
                if (last)
                    return false;
                ++i;
                m_outcome.values[letter] = QString::fromLatin1(unquoted(words[i]).c_str());
            } else if (letter == '-') {
                if (!last && lowerCase(word) == "--cleanup")
                    cleanUp(asLocalText(words[++i]));
                else if (!last && lowerCase(word) == "--changelog")
                    takeChangelog(unquoted(asLocalText(words[++i])));
            } else {
                return false;
            }
        }
        return true;
    }

    void cleanUp(const std::string& list)
    {
        for (std::size_t begin = 0; begin <= list.size();) {
            const std::size_t end = std::min(list.find(';', begin), list.size());
            remove(list.substr(begin, end - begin));
            begin = end + 1;
        }
    }

    void remove(const std::string& path)
    {
        if (m_outcome.filesLeft.erase(path) != 0)
            m_outcome.removals.push_back(path);
        else if (directories.count(path) != 0) // Refuses every time.
            m_outcome.removals.insert(m_outcome.removals.end(), 50, path);
    }

    void takeChangelog(const std::string& path)
    {
        const QString name = QString::fromStdString(path);
        // A name that begins with a colon is one of Qt's resources.
        const bool exists = path.substr(0, 1) == ":" ? QFile::exists(name)
                                                     : m_outcome.filesLeft.count(path) != 0 ||
                                                           directories.count(path) != 0;
        m_outcome.values['-'] = exists ? name : QString();
        if (!exists)
            m_outcome.messages += "The changelog file \" \"" + name + "\" \" doesn't exist! ";
    }

    Outcome m_outcome;
};

const std::map<char, QString*> valueOptions{
    {'d', &fProgramBaseDir}, {'l', &fUpdateUrl},  {'n', &fProgramName},  {'s', &fSharedMemKey},
    {'v', &fProgramVersion}, {'x', &fProgramExe}, {'-', &fChangelogFile}};
const std::map<char, bool*> flagOptions{
    {'b', &fBuildVerFile}, {'c', &fCheckVerOnly}, {'r', &fRequiredUpd}, {'u', &fDoUpdate}};

bool parse(Words words)
{
    words.insert(words.begin(), "updater");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    return processArgs(static_cast<int>(words.size()), argv.data());
}

Outcome outcomeOf(const Words& words)
{
    for (const auto& [letter, value] : valueOptions)
        *value = QString();
    for (const auto& [letter, flag] : flagOptions)
        *flag = false;

    static Playground playground;
    playground.enter();
    const Messages messages;
    Outcome outcome;
    outcome.accepted = parse(words);
    outcome.filesLeft = Playground::filesLeft();
    playground.leave();

    outcome.removals = removals.paths;
    for (const auto& message : messages.all())
        outcome.messages += message.second;
    for (const auto& [letter, value] : valueOptions)
        outcome.values[letter] = *value;
    for (const auto& [letter, flag] : flagOptions) {
        if (*flag)
            outcome.flags.insert(letter);
    }
    return outcome;
}

Words wordsFrom(const std::uint8_t* bytes, std::size_t size)
{
    Words words{std::string()};
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] == '\n')
            words.emplace_back();
        else if (bytes[i] == 0x80)
            words.back() += "sub/";
        else if (bytes[i] != '/' && bytes[i] != 0)
            words.back() += static_cast<char>(bytes[i]);
    }
    return words;
}

void compareTrimming(const std::string& word)
{
    QString text = QString::fromLatin1(word.c_str());
    trimQuotes(text);
    fuzz::compare("trimming", text, QString::fromLatin1(unquoted(word).c_str()),
                  QString::fromLatin1(word.c_str()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzz::makeApplication<QCoreApplication>();
    const Words words = wordsFrom(bytes, size);
    std::for_each(words.begin(), words.end(), compareTrimming);
    const QString expected = Model::of(words).described();
    const QString actual = outcomeOf(words).described();
    if (actual != expected)
        fuzz::disagree("the command line", "expected\n" + expected + "actual\n" + actual);
    return 0;
}
