// SPDX-License-Identifier: MIT
#include "MtlText.h"

#include <assimp/material.h>
#include <assimp/scene.h>

#include <QtCore/QList>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

struct TextureKind
{
    const char *keyword;
    aiTextureType type;
};

// What is drawn. Reflections, which are not, have options of their own.
constexpr TextureKind textureKinds[] = {{"map_kd", aiTextureType_DIFFUSE}, {"map_ka", aiTextureType_AMBIENT},
    {"map_ks", aiTextureType_SPECULAR}, {"map_ke", aiTextureType_EMISSIVE}, {"map_emissive", aiTextureType_EMISSIVE},
    {"map_d", aiTextureType_OPACITY}, {"map_ns", aiTextureType_SHININESS}, {"map_bump", aiTextureType_HEIGHT},
    {"bump", aiTextureType_HEIGHT}, {"norm", aiTextureType_NORMALS}, {"disp", aiTextureType_DISPLACEMENT}};

const TextureKind *kindOf(const QByteArray &keyword)
{
    const auto *kind = std::find_if(std::begin(textureKinds), std::end(textureKinds),
        [&](const TextureKind &known) { return keyword == known.keyword; });
    return kind == std::end(textureKinds) ? nullptr : kind;
}

bool isNumber(const QByteArray &word)
{
    bool fits = false;
    const float value = word.toFloat(&fits);
    return fits && std::isfinite(value);
}

QByteArray withoutQuotes(const QByteArray &name)
{
    const bool isQuoted = name.size() >= 2 && name.startsWith('"') && name.endsWith('"');
    return isQuoted ? name.mid(1, name.size() - 2) : name;
}

/// The options before the name of a file.
class Options
{
public:
    explicit Options(const QByteArray &text)
        : m_rest(text)
    { }

    /// The next option; empty where the file's name follows.
    QByteArray takeOption()
    {
        // Names of files start with a minus too.
        static const QList<QByteArray> known = {"-blendu", "-blendv", "-boost", "-bm", "-cc", "-clamp", "-imfchan",
            "-mm", "-o", "-s", "-t", "-texres", "-type"};
        const QByteArray word = firstWord().toLower();
        return known.contains(word) ? (takeWord(), word) : QByteArray();
    }

    QByteArray takeWord()
    {
        const QByteArray word = firstWord();
        m_rest = m_rest.mid(word.size()).trimmed();
        return word;
    }

    /// Up to three numbers; those that are left out are as in `fallback`.
    QVector<float> takeNumbers(QVector<float> fallback)
    {
        for (float &value : fallback) {
            // A file may be called like a number: the last word is its name.
            if (!isNumber(firstWord()) || firstWord().size() == m_rest.size())
                break;
            value = takeWord().toFloat();
        }
        return fallback;
    }

    QByteArray rest() const { return m_rest; }

private:
    QByteArray firstWord() const
    {
        int size = 0;
        while (size < m_rest.size() && m_rest[size] != ' ' && m_rest[size] != '\t')
            ++size;
        return m_rest.left(size);
    }

    QByteArray m_rest;
};

} // namespace

QByteArray MtlText::plainText(const QByteArray &text, const QString &name)
{
    m_library = name;
    m_line = 0;
    QByteArray plain;
    plain.reserve(text.size());
    QByteArray joined;
    for (const QByteArray &part : text.split('\n')) {
        ++m_line;
        joined += part.trimmed();
        if (joined.endsWith('\\')) {
            joined.back() = ' ';
            continue;
        }
        if (joined.left(6).toLower() == "newmtl")
            plain += takeBlock();
        readLine(joined);
        joined.clear();
    }
    readLine(joined);
    return plain + takeBlock();
}

void MtlText::readLine(const QByteArray &line)
{
    Options words(line);
    const QByteArray word = words.takeWord();
    const QByteArray keyword = word.toLower();
    QByteArray values = words.rest();
    if (!takesNumbers(keyword, line, &values))
        return;
    if (keyword == "newmtl") {
        m_block.name = values;
        m_names.insert(values.simplified());
    } else if (keyword == "d") {
        m_block.hasOpacity = true;
        // A halo is opaque where the surface faces the eye; the nearest that is drawn is the same everywhere.
        m_block.lines += "d " + (values.startsWith("-halo") ? values.mid(5).trimmed() : values) + '\n';
        return;
    } else if (keyword == "tr") {
        m_block.transparency = "Tr " + values + '\n';
        return;
    } else if (keyword == "ks") {
        m_block.highlight += "Ks " + values + '\n';
        return;
    }
    m_block.hasColour |= keyword == "kd";
    m_block.hasColourMap |= keyword == "map_kd";
    if (keyword == "illum")
        m_block.hasNoHighlight = values == "0" || values == "1";
    if (!kindOf(keyword)) {
        m_block.lines += word + ' ' + values + '\n';
        return;
    }
    QByteArray &target = keyword == "map_ks" ? m_block.highlight : m_block.lines;
    target += word + ' ' + textureLine(keyword, values) + '\n';
}

/// Whether a line has the numbers that its keyword asks for: three of a colour, of which the first stands for those that are left
/// out, or one. A line that has something else says so and is left out; assimp would refuse the whole model.
bool MtlText::takesNumbers(const QByteArray &keyword, const QByteArray &line, QByteArray *values)
{
    static const QList<QByteArray> colours = {"ka", "kd", "ke", "ks", "tf"};
    static const QList<QByteArray> factors = {
        "anisor", "aniso", "d", "illum", "ni", "ns", "pc", "pcr", "pm", "pr", "ps", "sharpness", "tr"};
    const bool isColour = colours.contains(keyword);
    if (!isColour && !factors.contains(keyword))
        return true;
    QByteArray text = values->simplified();
    const int comment = text.indexOf('#');
    if (comment >= 0)
        text = text.left(comment).trimmed();
    const bool isHalo = keyword == "d" && text.startsWith("-halo");
    QList<QByteArray> numbers = (isHalo ? text.mid(5).trimmed() : text).split(' ');
    const bool isFit = std::all_of(numbers.begin(), numbers.end(), isNumber) && (isColour ? numbers.size() <= 4 : true);
    if (!isFit) {
        m_warnings.append(
            QStringLiteral("material library \"%1\", line %2: \"%3\" has no number where one is needed and is left out")
                .arg(m_library, QString::number(m_line), QString::fromUtf8(line.simplified().left(80))));
        return false;
    }
    while (isColour && numbers.size() < 3)
        numbers.append(numbers.first());
    *values = (isHalo ? QByteArray("-halo ") : QByteArray()) + numbers.join(' ');
    return true;
}

/// Only the option that assimp takes and the name of the file.
QByteArray MtlText::textureLine(const QByteArray &keyword, const QByteArray &values)
{
    Options options(values);
    Placement placement;
    placement.material = m_block.name;
    placement.keyword = keyword;
    QByteArray kept;
    QStringList leftOut;
    while (true) {
        const QByteArray option = options.takeOption();
        if (option.isEmpty())
            break;
        if (option == "-s" || option == "-o" || option == "-t") {
            const float unset = option == "-s" ? 1 : 0;
            const QVector<float> numbers = options.takeNumbers({unset, unset, unset});
            if (option == "-s")
                placement.scale = {numbers[0], numbers[1]};
            else if (option == "-o")
                placement.offset = {numbers[0], numbers[1]};
            else if (std::any_of(numbers.begin(), numbers.end(), [](float number) { return number != 0; }))
                leftOut.append(QStringLiteral("-t"));
        } else if (option == "-mm") {
            const QVector<float> numbers = options.takeNumbers({0, 1});
            if (numbers[0] != 0 || numbers[1] != 1)
                leftOut.append(QStringLiteral("-mm"));
        } else {
            const QByteArray value = options.takeWord().toLower();
            if (option == "-clamp" && value == "on")
                kept = "-clamp on ";
            // Of the channels the brightness is what is taken anyway.
            const bool changesLook = (option == "-cc" && value == "on")
                || (option == "-imfchan" && value != "l" && value != "m" && keyword != "map_bump" && keyword != "bump");
            if (changesLook)
                leftOut.append(QString::fromLatin1(option));
        }
    }
    const QByteArray name = withoutQuotes(options.rest());
    if (!leftOut.isEmpty())
        m_warnings.append(
            QStringLiteral("material \"%1\": texture \"%2\": %3 is not honoured")
                .arg(QString::fromUtf8(m_block.name), QString::fromUtf8(name), leftOut.join(QStringLiteral(", "))));
    if (placement.scale != QVector2D(1, 1) || !placement.offset.isNull())
        m_placements.append(placement);
    return kept + name;
}

/// The lines of the material so far, completed.
QByteArray MtlText::takeBlock()
{
    QByteArray lines = m_block.lines;
    if (!m_block.name.isEmpty()) {
        if (m_block.hasColourMap && !m_block.hasColour)
            lines += "Kd 1 1 1\n";
        if (!m_block.hasOpacity)
            lines += m_block.transparency;
        lines += m_block.hasNoHighlight ? QByteArray("Ks 0 0 0\n") : m_block.highlight;
    }
    m_block = Block();
    return lines;
}

MtlText::Placement MtlText::placementOf(const QByteArray &material, aiTextureType type) const
{
    for (const Placement &placement : m_placements) {
        if (placement.material == material && kindOf(placement.keyword)->type == type)
            return placement;
    }
    return {};
}

void MtlText::complete(const aiScene *scene) const
{
    for (unsigned m = 0; m < scene->mNumMaterials && !m_placements.isEmpty(); ++m) {
        const aiString name = scene->mMaterials[m]->GetName();
        const QByteArray material(name.C_Str(), int(name.length));
        QVector<Placement> sets;
        for (const TextureKind &kind : textureKinds) {
            if (scene->mMaterials[m]->GetTextureCount(kind.type) == 0)
                continue;
            const Placement placement = placementOf(material, kind.type);
            int set = 0;
            while (set < sets.size() && !placement.isSameAs(sets[set]))
                ++set;
            if (set == sets.size() && set < AI_MAX_NUMBER_OF_TEXTURECOORDS)
                sets.append(placement);
            scene->mMaterials[m]->AddProperty(&set, 1, AI_MATKEY_UVWSRC(kind.type, 0));
        }
        for (unsigned mesh = 0; mesh < scene->mNumMeshes; ++mesh) {
            if (scene->mMeshes[mesh]->mMaterialIndex == m)
                layOut(scene->mMeshes[mesh], sets);
        }
    }
}

/// A set of texture coordinates for each placement. OBJ files have one set.
void MtlText::layOut(aiMesh *mesh, const QVector<Placement> &sets)
{
    const aiVector3D *const given = mesh->mTextureCoords[0];
    // The first one last: the others are made of it.
    for (int set = sets.size() - 1; set >= 0 && given; --set) {
        if (!mesh->mTextureCoords[set])
            mesh->mTextureCoords[set] = new aiVector3D[mesh->mNumVertices];
        mesh->mNumUVComponents[set] = 2;
        for (unsigned v = 0; v < mesh->mNumVertices; ++v)
            mesh->mTextureCoords[set][v] = {given[v].x * sets[set].scale.x() + sets[set].offset.x(),
                given[v].y * sets[set].scale.y() + sets[set].offset.y(), 0};
    }
}

} // namespace Velmora::Kvz
