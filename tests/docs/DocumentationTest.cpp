// SPDX-License-Identifier: MIT
// The documentation says what the code does: ports, options, chains, findings, pictures and links.
#include "support/PortListing.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtGui/QImage>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString root = QStringLiteral(KVZ_SOURCE_DIR);
const QString docs = root + QStringLiteral("/docs");

QString read(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << qPrintable(path);
    return QString::fromUtf8(file.readAll());
}

QStringList filesIn(const QString &folder, const QString &pattern)
{
    QStringList files;
    QDirIterator iterator(folder, {pattern}, QDir::Files, QDirIterator::Subdirectories);
    while (iterator.hasNext())
        files.append(iterator.next());
    files.sort();
    return files;
}

QStringList pages()
{
    return filesIn(docs, QStringLiteral("*.md"))
        + QStringList{root + QStringLiteral("/README.md"), root + QStringLiteral("/CONTRIBUTING.md"),
            root + QStringLiteral("/Media/Chains/README.md")};
}

/// The comment above a class in the headers of passes; empty if no header has the class.
QString commentOfClass(const QString &className)
{
    static const QString text = [] {
        QString all;
        for (const QString &folder :
            {QStringLiteral("/include/RenderPasses"), QStringLiteral("/include/ExtraPasses")}) {
            for (const QString &file : filesIn(root + folder, QStringLiteral("*.h")))
                all += read(file);
        }
        return all;
    }();
    const QRegularExpression comment(
        QStringLiteral("((?:^///.*\\n)+)^class KVZ_\\w+ %1 ").arg(className), QRegularExpression::MultilineOption);
    return comment.match(text).captured(1);
}

/// The rows of the port tables in a header's comment: "in" or "out", index, name and, for inputs, the default.
QStringList portRowsOfComment(const QString &comment)
{
    QStringList rows;
    bool areInputs = false;
    for (const QString &line : comment.split(QLatin1Char('\n'))) {
        QStringList cells;
        for (const QString &cell : line.split(QLatin1Char('|')).mid(1))
            cells.append(cell.trimmed());
        bool isIndex = false;
        cells.value(0).toInt(&isIndex);
        if (cells.value(0) == QLatin1String("Input") || cells.value(0) == QLatin1String("Output"))
            areInputs = cells[0] == QLatin1String("Input");
        else if (isIndex && areInputs)
            rows.append(QStringLiteral("in %1 %2 %3").arg(cells[0], cells.value(1), cells.value(3)));
        else if (isIndex)
            rows.append(QStringLiteral("out %1 %2").arg(cells[0], cells.value(1)));
    }
    return rows;
}

/// A block of a page between two fences.
struct Block
{
    QString language;
    QString text;
    QString before; ///< The page up to the block.
};

QVector<Block> blocksOf(const QString &page)
{
    static const QRegularExpression fence(QStringLiteral("^```(\\w+)\\n(.*?)^```$"),
        QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
    QVector<Block> blocks;
    auto matches = fence.globalMatch(page);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        blocks.append({match.captured(1), match.captured(2), page.left(match.capturedStart())});
    }
    return blocks;
}

QString withoutBlocks(QString page)
{
    static const QRegularExpression block(QStringLiteral("^```.*?^```$"),
        QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
    return page.remove(block);
}

/// The anchors of a page's headings.
QStringList anchorsOf(const QString &page)
{
    static const QRegularExpression heading(QStringLiteral("^#+ (.*)$"), QRegularExpression::MultilineOption);
    static const QRegularExpression dropped(QStringLiteral("[^\\w -]"));
    QStringList anchors;
    auto matches = heading.globalMatch(withoutBlocks(page));
    while (matches.hasNext())
        anchors.append(
            matches.next().captured(1).toLower().remove(dropped).replace(QLatin1Char(' '), QLatin1Char('-')));
    return anchors;
}

QString nameOf(ChainFinding::Code code)
{
    // A switch, so that the compiler reports a new code that is missing here.
    switch (code) {
#define KVZ_CODE(name)                                                                                                 \
    case ChainFinding::Code::name:                                                                                     \
        return QStringLiteral(#name);
        KVZ_CODE(EmptyChain)
        KVZ_CODE(BadPassName)
        KVZ_CODE(DuplicatePass)
        KVZ_CODE(UnknownClass)
        KVZ_CODE(UnknownPort)
        KVZ_CODE(UnknownPass)
        KVZ_CODE(UnknownFrameValue)
        KVZ_CODE(BadOption)
        KVZ_CODE(BadValue)
        KVZ_CODE(TypeMismatch)
        KVZ_CODE(KindMismatch)
        KVZ_CODE(DepthFormatMismatch)
        KVZ_CODE(MultisampleMismatch)
        KVZ_CODE(MissingStencil)
        KVZ_CODE(MissingInput)
        KVZ_CODE(OrderViolation)
        KVZ_CODE(DisabledProducer)
        KVZ_CODE(SharedDrawTarget)
        KVZ_CODE(NotPlain)
        KVZ_CODE(UnusableConfiguration)
        KVZ_CODE(RoleOrder)
        KVZ_CODE(UnusedLights)
        KVZ_CODE(MissingDriverFeature)
#undef KVZ_CODE
    }
    return QString();
}

QStringList linesOf(const QVector<ChainFinding> &findings)
{
    QStringList lines;
    for (const ChainFinding &finding : findings)
        lines.append(finding.toString());
    return lines;
}

} // namespace

TEST(DocumentationTest, everyHeaderOfAPassHasItsPorts)
{
    for (const QString &name : PassRegistry::standard().classNames()) {
        SCOPED_TRACE(qPrintable(name));
        const PassInfo &pass = *PassRegistry::standard().find(name);
        QStringList rows;
        for (int i = 0; i < pass.inputs.size(); ++i) {
            const QVariant value = pass.inputs[i].defaultValue;
            rows.append(QStringLiteral("in %1 %2 %3")
                            .arg(QString::number(i), pass.inputs[i].name,
                                value.isValid() ? defaultText(value) : QStringLiteral("invalid")));
        }
        for (int i = 0; i < pass.outputs.size(); ++i)
            rows.append(QStringLiteral("out %1 %2").arg(QString::number(i), pass.outputs[i].name));
        EXPECT_EQ(portRowsOfComment(commentOfClass(name)), rows);
    }
}

TEST(DocumentationTest, theIndexListsAllPagesOfPasses)
{
    const QString index = read(docs + QStringLiteral("/passes/README.md"));
    for (const QString &file : QDir(docs + QStringLiteral("/passes")).entryList({QStringLiteral("*Pass.md")})) {
        EXPECT_TRUE(index.contains(QStringLiteral("](%1)").arg(file))) << qPrintable(file);
        // Looked up in the registry, since a header need not be named after its class.
        EXPECT_TRUE(PassRegistry::standard().find(file.chopped(3)))
            << "a page of a class that is not there: " << qPrintable(file);
    }
}

TEST(DocumentationTest, readyChainsAreSoundAndListedWithAPicture)
{
    const QString page = read(docs + QStringLiteral("/chains.md"));
    const QStringList names = readyChainNames();
    EXPECT_GE(names.size(), 2);
    for (const QString &name : names) {
        SCOPED_TRACE(qPrintable(name));
        ChainDescription chain;
        QString error;
        ASSERT_TRUE(loadChain(name, &chain, &error)) << qPrintable(error);
        EXPECT_EQ(linesOf(validateChain(chain)), QStringList());
        EXPECT_TRUE(page.contains(QStringLiteral("\n### %1\n").arg(name)));
        EXPECT_TRUE(page.contains(QStringLiteral("](images/passes/chain-%1.png)").arg(name)));
    }
}

TEST(DocumentationTest, exampleChainsAreSound)
{
    const QStringList files = filesIn(docs + QStringLiteral("/examples"), QStringLiteral("*.json"));
    EXPECT_GE(files.size(), 8);
    for (const QString &file : files) {
        ChainDescription chain;
        QString error;
        ASSERT_TRUE(loadChain(file, &chain, &error)) << qPrintable(error);
        EXPECT_EQ(linesOf(validateChain(chain)), QStringList()) << qPrintable(file);
    }
}

// A chain in a page is sound, unless the next block is the list of its findings.
TEST(DocumentationTest, chainsInPagesCheckAsThePagesSay)
{
    int sound = 0;
    QSet<QString> shown;
    for (const QString &file : pages()) {
        const QVector<Block> blocks = blocksOf(read(file));
        for (int i = 0; i < blocks.size(); ++i) {
            const Block &block = blocks[i];
            if (block.language != QLatin1String("json"))
                continue;
            SCOPED_TRACE(qPrintable(file + QLatin1Char('\n') + block.text));
            ChainDescription chain;
            QString error;
            ASSERT_TRUE(ChainDescription::fromJson(block.text.toUtf8(), &chain, &error)) << qPrintable(error);
            chain.folder = docs + QStringLiteral("/examples"); // The folder of the shaders that pages name.
            const QVector<ChainFinding> findings = validateChain(chain);
            static const QRegularExpression finding(QStringLiteral("^(error|warning): "));
            const QString next = i + 1 < blocks.size() && blocks[i + 1].language == QLatin1String("text")
                ? blocks[i + 1].text.trimmed()
                : QString();
            if (!finding.match(next).hasMatch()) {
                EXPECT_EQ(linesOf(findings), QStringList());
                ++sound;
                continue;
            }
            EXPECT_EQ(linesOf(findings), next.split(QLatin1Char('\n')));
            // The paragraph before the chain begins with the name of the finding's code.
            const QString code = block.before.section(QStringLiteral("\n`"), -1).section(QStringLiteral("`:"), 0, 0);
            for (const ChainFinding &found : findings)
                EXPECT_EQ(nameOf(found.code), code);
            shown.insert(code);
        }
    }
    EXPECT_GE(sound, 15);
    EXPECT_GE(shown.size(), 18);
}

TEST(DocumentationTest, everyKindOfFindingIsExplained)
{
    const QString page = read(docs + QStringLiteral("/chains.md"));
    for (int code = 0; code <= int(ChainFinding::Code::MissingDriverFeature); ++code) {
        const QString name = nameOf(ChainFinding::Code(code));
        EXPECT_TRUE(page.contains(QStringLiteral("\n`%1`: ").arg(name))) << qPrintable(name);
    }
}

// The standard classes cannot cause these findings; the page shows the lines that a host's own classes get.
TEST(DocumentationTest, findingsOfHostsClassesReadAsThePageSays)
{
    const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");
    InputInfo samples;
    samples.name = QStringLiteral("Kvz_int_NumberMultisamples");
    samples.type = ValueType::Int;
    samples.defaultValue = 4;
    OutputInfo given;
    given.name = frame;
    given.type = ValueType::Texture;
    given.texture.kind = TextureKind::Colour;
    given.samplesInput = samples.name;
    InputInfo wanted;
    wanted.name = frame;
    wanted.type = ValueType::Texture;
    wanted.texture.kind = TextureKind::Colour;
    PassInfo first, second;
    first.className = QStringLiteral("First");
    first.inputs = {samples};
    first.outputs = {given};
    first.traits = PassTrait::AntiAliases;
    second.className = QStringLiteral("Second");
    second.inputs = {wanted};
    second.traits = PassTrait::Shades;
    PassRegistry registry;
    registry.add(first);
    registry.add(second);

    ChainDescription chain;
    QString error;
    const QByteArray json = R"({"passes": [{"name": "a", "class": "First"}, {"name": "b", "class": "Second"}]})";
    ASSERT_TRUE(ChainDescription::fromJson(json, &chain, &error)) << qPrintable(error);
    const QStringList lines = linesOf(validateChain(chain, registry));
    EXPECT_EQ(lines.size(), 2);
    const QString page = read(docs + QStringLiteral("/chains.md"));
    for (const QString &line : lines)
        EXPECT_TRUE(page.contains(QStringLiteral("\n%1\n").arg(line))) << qPrintable(line);
}

TEST(DocumentationTest, linksLeadSomewhereAndPicturesAreSmallAndNotBlank)
{
    static const QRegularExpression link(QStringLiteral("\\]\\(([^)#]*)(?:#([^)]*))?\\)"));
    int pictures = 0;
    for (const QString &file : pages()) {
        auto matches = link.globalMatch(withoutBlocks(read(file)));
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            const QString target = match.captured(1);
            if (target.contains(QLatin1String("://")))
                continue;
            const QString path = target.isEmpty() ? file : QFileInfo(file).dir().filePath(target);
            EXPECT_TRUE(QFile::exists(path)) << qPrintable(file + QStringLiteral(": ") + target);
            const QString anchor = match.captured(2);
            if (!anchor.isEmpty()) {
                EXPECT_TRUE(anchorsOf(read(path)).contains(anchor))
                    << qPrintable(QStringLiteral("%1: %2#%3").arg(file, target, anchor));
            }
            if (!target.endsWith(QLatin1String(".png")))
                continue;
            ++pictures;
            const QImage image(path);
            QSet<QRgb> colours;
            for (int y = 0; y < image.height(); y += 5) {
                for (int x = 0; x < image.width(); x += 5)
                    colours.insert(image.pixel(x, y));
            }
            EXPECT_GE(colours.size(), 3) << qPrintable(path);
            if (path.contains(QLatin1String("/images/passes/"))) {
                EXPECT_LE(QFileInfo(path).size(), 80 * 1024) << qPrintable(path);
            }
        }
    }
    EXPECT_GE(pictures, 20);
}

TEST(DocumentationTest, pagesShowTheExamplesThatAreTested)
{
    const auto expectShown = [](const QString &page, const QString &example) {
        // Without the licence line and the include guard.
        const QString code = read(QStringLiteral("%1/examples/%2").arg(docs, example)).section(QLatin1Char('\n'), 3);
        EXPECT_TRUE(read(docs + QLatin1Char('/') + page).contains(code)) << qPrintable(example);
    };
    expectShown(QStringLiteral("chains.md"), QStringLiteral("ChainWidget.h"));
    expectShown(QStringLiteral("shaders.md"), QStringLiteral("Highlight.h"));
    expectShown(QStringLiteral("chains.md"), QStringLiteral("vignette.frag"));
}

} // namespace Velmora::Kvz
