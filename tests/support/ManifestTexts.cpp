#include "tests/support/ManifestTexts.h"

#include <algorithm>
#include <random>
#include <vector>

namespace {

using Choices = std::vector<QString>;

// What QString::trimmed() removes, and what it does not although it looks like a space.
const Choices spaces{"",     "",   "",   "",   "\n\t",   "\n\t\t", " ",
                     "\r\n", "  ", "\t", "\v", "\u00a0", "\u2003", "\u0085"};
const Choices noSpaces{"\u200b", "\ufeff", "\u00ad"};

const Choices roots{"Editor",  "Editor", "Editor",   "Editor", "Kiosk's", "file",      "name",
                    "version", "a%1b",   " Editor ", " ",      "",        "\U00010400"};

const Choices versions{"2.1", "2.1", "2.1", "2.1", "3 beta", "%1", "1<2>3", "<file>", ""};
const Choices flags{"true", "TRUE", "tRuE", "false", "yes", "1", "", "<true>"};
const Choices payloads{"Y2w=", "Y2w=", "Y2hhbmdlcw==", "", "<file>", "</file>", "<version>0"};
const Choices names{"a.txt", "b/c.dat", "d e", "%1", "<i>", "x</name>y", "</file>", "<file>z", ""};
const Choices digests{"5a", "da39a3ee", "F572D396", "%2", "not one", "</sha1>", "<size>", ""};
const Choices sizes{"0",
                    "6",
                    "18446744073709551615",
                    "18446744073709551616",
                    "12a",
                    "-1",
                    "-0",
                    "+5",
                    "007",
                    "0x10",
                    "1e3",
                    "1 000",
                    "1,000",
                    "\u0661",
                    ""};

const Choices fragments{"<",       ">",           "/",         "<fi",
                        "le>",     "</fi",        "<file",     "file>",
                        "</file",  "<f",          "<file>",    "</file>",
                        "</name>", "<size>",      "<version>", "</version>",
                        "<other>", "</other>",    "<!-- -->",  "&lt;",
                        "< file>", "<file >",     "<//file>",  "<<file>",
                        "text",    "<\u017fize>", "<size",     QString(QChar(0xd800))};

// One random choice per expression: the order within an expression is the compiler's.
class Generator
{
public:
    explicit Generator(quint64 seed) : m_random(seed) {}

    ManifestText next()
    {
        ManifestText text;
        m_root = rootName();
        text.rootTag = maybe(95) ? m_root : pick(roots);
        text.xml = document();
        if (maybe(8))
            damage(text.xml);
        text.start = start();
        return text;
    }

private:
    int below(int limit) { return static_cast<int>(m_random() % static_cast<quint64>(limit)); }
    bool maybe(int percent) { return below(100) < percent; }
    const QString& pick(const Choices& choices)
    {
        return choices[static_cast<std::size_t>(below(static_cast<int>(choices.size())))];
    }

    /// Nearly always the first one, so that most records are whole.
    const QString& mostlyFirst(const Choices& choices)
    {
        return maybe(85) ? choices.front() : pick(choices);
    }

    QString rootName() { return mostlyFirst(roots); }

    QString space() { return maybe(97) ? pick(spaces) : pick(noSpaces); }

    QString junk()
    {
        QString text = space();
        if (maybe(12)) {
            text += pick(fragments);
            text += space();
        }
        return text;
    }

    /// A name in any letter case, now and then with letters that are the same only when folded.
    QString spelt(QString name)
    {
        if (maybe(75))
            return name;
        for (QChar& c : name) {
            if (maybe(50))
                c = c.toUpper();
            if (c.toLower() == 's' && maybe(20))
                c = QChar(0x017f);
            if (c.toLower() == 'k' && maybe(20))
                c = QChar(0x212a);
        }
        return name;
    }

    QString element(const QString& name, const QString& value)
    {
        QString text = '<' + spelt(name) + '>';
        text += space();
        text += value;
        text += space();
        text += "</" + spelt(name) + '>';
        return text;
    }

    QString block()
    {
        Choices fields{element("name", mostlyFirst(names)), element("sha1", mostlyFirst(digests)),
                       element("size", mostlyFirst(sizes))};
        if (maybe(20))
            shuffle(fields);
        if (maybe(2))
            fields.pop_back();
        return element("file", joined(fields));
    }

    QString anyElement()
    {
        if (maybe(60))
            return block();
        switch (below(7)) {
        case 0:
            return element("version", pick(versions));
        case 1:
            return element("required", pick(flags));
        case 2:
            return element("changelog", pick(payloads));
        case 3:
            return element("name", pick(names));
        case 4:
            return element("sha1", pick(digests));
        case 5:
            return element("size", pick(sizes));
        default:
            return element("other", pick(fragments));
        }
    }

    QString body()
    {
        Choices pieces;
        if (maybe(97))
            pieces.push_back(element("version", mostlyFirst(versions)));
        if (maybe(80))
            pieces.push_back(element("required", pick(flags)));
        if (maybe(80))
            pieces.push_back(element("changelog", pick(payloads)));
        for (int count = below(6); count > 0; --count)
            pieces.push_back(maybe(95) ? block() : anyElement());
        if (maybe(25))
            shuffle(pieces);
        QString text = joined(pieces);
        for (int count = maybe(60) ? below(4) : 0; count > 0; --count)
            splitTag(text);
        return text;
    }

    QString record() { return element(m_root, body()); }

    QString otherRecord()
    {
        const QString& root = pick(roots);
        return element(root, body());
    }

    QString document()
    {
        if (maybe(1))
            return junk();
        QString text = junk();
        text += record();
        text += junk();
        if (maybe(5))
            text += record();
        if (maybe(5))
            text.prepend(otherRecord());
        return text;
    }

    /// Puts a whole element into the middle of some tag: once the element is cut out, the tag forms
    /// across the seam. Applied again, it may do so to the tags of that element.
    void splitTag(QString& text)
    {
        if (text.isEmpty())
            return;
        const QString tag = maybe(75) ? "<file>" : "<";
        const auto begin = text.indexOf(tag, below(static_cast<int>(text.size())));
        const auto end = text.indexOf('>', begin);
        if (begin < 0 || end < 0)
            return;
        const auto at = begin + 1 + below(static_cast<int>(end - begin));
        QString inner = space();
        inner += maybe(60) ? block() : anyElement();
        inner += space();
        text.insert(at, inner);
    }

    /// Changes a few characters anywhere.
    void damage(QString& text)
    {
        for (int count = 1 + below(3); count > 0 && !text.isEmpty(); --count) {
            const int at = below(static_cast<int>(text.size()));
            switch (below(4)) {
            case 0:
                text.remove(at, 1 + below(4));
                break;
            case 1:
                text.insert(at, pick(fragments));
                break;
            case 2:
                text.insert(at, pick(spaces));
                break;
            default:
                text.insert(at, text.mid(at, 1 + below(40)));
            }
        }
    }

    ProgramData start()
    {
        ProgramData data;
        if (maybe(50))
            return data;
        data.name = "Old";
        data.version = "1.0";
        data.required = maybe(50);
        data.changelog = maybe(50) ? "b2xk" : "";
        for (int count = below(3); count > 0; --count)
            data.files.append({"old.txt", "0d", 1});
        return data;
    }

    QString joined(const Choices& pieces)
    {
        QString text;
        for (const QString& piece : pieces) {
            text += piece;
            text += junk();
        }
        return text;
    }

    void shuffle(Choices& pieces)
    {
        // Not std::shuffle, whose outcome differs between libraries.
        for (std::size_t left = pieces.size(); left > 1; --left)
            std::swap(pieces[left - 1],
                      pieces[static_cast<std::size_t>(below(static_cast<int>(left)))]);
    }

    std::mt19937_64 m_random;
    QString m_root;
};

} // namespace

ManifestText manifestText(quint64 seed, quint64 number)
{
    // An odd multiplier spreads the numbers, so that series do not share texts.
    return Generator(seed + number * 0x9e3779b97f4a7c15U).next();
}
