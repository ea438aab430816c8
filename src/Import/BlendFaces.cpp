// SPDX-License-Identifier: MIT
#include "BlendFaces.h"

#include "FaceNormals.h"

#include <assimp/scene.h>

#include <QtCore/QtEndian>

#include <zlib.h>

#include <algorithm>
#include <map>

namespace Velmora::Kvz {

namespace {

QByteArray unpacked(const QByteArray &content)
{
    constexpr int gzip = 16 + 15;
    constexpr int most = 1 << 30;
    constexpr int step = 1 << 20;
    QByteArray result;
    z_stream stream = {};
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.constData()));
    stream.avail_in = uInt(content.size());
    int state = inflateInit2(&stream, gzip);
    while (state == Z_OK && result.size() < most) {
        const int done = result.size();
        result.resize(done + step);
        stream.next_out = reinterpret_cast<Bytef *>(result.data() + done);
        stream.avail_out = step;
        state = inflate(&stream, Z_NO_FLUSH);
        result.resize(done + step - int(stream.avail_out));
    }
    inflateEnd(&stream);
    return state == Z_STREAM_END ? result : QByteArray();
}

/// The blocks of a file and the layout of the structures in them.
class BlendFile
{
public:
    struct Block
    {
        int begin = 0;
        int size = 0;
        int structure = 0;
        int count = 0;
    };

    explicit BlendFile(const QByteArray &content);

    std::vector<Block> meshes; ///< One of a mesh each.

    /// Where a member of a structure lies, from its beginning; -1 where it has none. Names of pointers begin with '*'.
    int offsetOf(const QByteArray &structure, const QByteArray &member) const
    {
        return m_structures.value(structure).members.value(member, -1);
    }
    int sizeOf(const QByteArray &structure) const { return m_structures.value(structure).size; }
    QByteArray bytes(int at, int size) const
    {
        return at >= 0 && at + size <= m_content.size() ? m_content.mid(at, size) : QByteArray();
    }
    qint32 number(int at) const { return qint32(unsignedAt(at, 4)); }
    qint16 shortNumber(int at) const { return qint16(unsignedAt(at, 2)); }
    quint64 pointer(int at) const { return unsignedAt(at, m_pointerSize); }
    int pointerSize() const { return m_pointerSize; }
    const QByteArray &content() const { return m_content; }
    /// The block that an address means; of no size where there is none.
    Block blockAt(quint64 address) const { return m_blocks.value(address); }

private:
    struct Structure
    {
        int size = 0;
        QHash<QByteArray, int> members;
    };

    /// The next place that is a multiple of four from where a block begins.
    static int aligned(int at, const Block &block) { return block.begin + (at - block.begin + 3) / 4 * 4; }
    quint64 unsignedAt(int at, int size) const;
    void readDna(const Block &block);
    QList<QByteArray> readNames(int *at, const Block &block, const char *tag) const;

    QByteArray m_content;
    int m_pointerSize = 8;
    bool m_isBigEndian = false;
    QHash<quint64, Block> m_blocks;
    QHash<QByteArray, Structure> m_structures;
};

quint64 BlendFile::unsignedAt(int at, int size) const
{
    quint64 value = 0;
    if (at < 0 || at + size > m_content.size())
        return 0;
    for (int i = 0; i < size; ++i) {
        const int shift = 8 * (m_isBigEndian ? size - 1 - i : i);
        value |= quint64(quint8(m_content[at + i])) << shift;
    }
    return value;
}

/// A tag, a count, and texts that end with zeros.
QList<QByteArray> BlendFile::readNames(int *at, const Block &block, const char *tag) const
{
    QList<QByteArray> names;
    *at = aligned(*at, block);
    if (bytes(*at, 4) != tag)
        return names;
    const int count = number(*at + 4);
    *at += 8;
    while (names.size() < count) {
        const int zero = m_content.indexOf('\0', *at);
        if (zero < 0 || zero >= block.begin + block.size)
            return {};
        names.append(m_content.mid(*at, zero - *at));
        *at = zero + 1;
    }
    return names;
}

void BlendFile::readDna(const Block &block)
{
    const int end = block.begin + block.size;
    if (bytes(block.begin, 4) != "SDNA")
        return;
    int at = block.begin + 4;
    const QList<QByteArray> names = readNames(&at, block, "NAME");
    const QList<QByteArray> types = readNames(&at, block, "TYPE");
    at = aligned(at, block);
    if (names.isEmpty() || types.isEmpty() || bytes(at, 4) != "TLEN")
        return;
    const int sizes = at + 4;
    at = aligned(sizes + 2 * types.size(), block);
    if (bytes(at, 4) != "STRC")
        return;
    const int structures = number(at + 4);
    at += 8;
    const auto sizeOfType = [&](int type) { return int(quint16(shortNumber(sizes + 2 * type))); };
    for (int s = 0; s < structures && at + 4 <= end; ++s) {
        const int type = quint16(shortNumber(at));
        const int members = quint16(shortNumber(at + 2));
        at += 4;
        if (type >= types.size())
            return;
        Structure structure;
        structure.size = sizeOfType(type);
        int offset = 0;
        for (int m = 0; m < members && at + 4 <= end; ++m, at += 4) {
            const int memberType = quint16(shortNumber(at));
            const int name = quint16(shortNumber(at + 2));
            if (memberType >= types.size() || name >= names.size())
                return;
            QByteArray bare = names[name];
            int size = bare.startsWith('*') || bare.startsWith("(*") ? m_pointerSize : sizeOfType(memberType);
            for (int open = bare.indexOf('['); open >= 0; open = bare.indexOf('[', open + 1))
                size *= bare.mid(open + 1, bare.indexOf(']', open) - open - 1).toInt();
            if (bare.contains('['))
                bare = bare.left(bare.indexOf('['));
            structure.members.insert(bare, offset);
            offset += size;
        }
        m_structures.insert(types[type], structure);
    }
}

BlendFile::BlendFile(const QByteArray &content)
    : m_content(content.startsWith("\x1f\x8b") ? unpacked(content) : content)
{
    constexpr int headerSize = 12;
    if (!m_content.startsWith("BLENDER") || m_content.size() < headerSize)
        return;
    m_pointerSize = m_content[7] == '_' ? 4 : 8;
    m_isBigEndian = m_content[8] == 'V';
    Block dna;
    for (int at = headerSize; at + 16 + m_pointerSize <= m_content.size();) {
        const QByteArray code = m_content.mid(at, 4);
        const quint64 address = pointer(at + 8);
        const Block block{
            at + 16 + m_pointerSize, number(at + 4), number(at + 8 + m_pointerSize), number(at + 12 + m_pointerSize)};
        if (block.size < 0 || block.size > m_content.size() - block.begin)
            break;
        m_blocks.insert(address, block);
        if (code.startsWith("ME") && code[2] == '\0')
            meshes.push_back(block);
        if (code == "DNA1")
            dna = block;
        at = block.begin + block.size;
    }
    readDna(dna);
}

/// Fills the slots of a mesh's materials that are empty: by the first one that is not, or all are taken away. Returns whether the
/// first was done; nothing is changed where no slot is empty.
bool fillSlots(const BlendFile &file, const BlendFile::Block &mesh, QByteArray *plain)
{
    const int pointer = file.offsetOf("Mesh", "**mat");
    const int count = file.offsetOf("Mesh", "totcol");
    const int size = file.pointerSize();
    if (pointer < 0 || count < 0)
        return false;
    const BlendFile::Block list = file.blockAt(file.pointer(mesh.begin + pointer));
    int full = -1;
    std::vector<int> empty;
    for (int slot = 0; slot < file.shortNumber(mesh.begin + count) && (slot + 1) * size <= list.size; ++slot) {
        const int at = list.begin + slot * size;
        if (file.pointer(at) == 0)
            empty.push_back(at);
        else if (full < 0)
            full = at;
    }
    if (empty.empty())
        return false;
    if (plain->isNull())
        *plain = file.content();
    for (const int at : empty) {
        if (full >= 0)
            plain->replace(at, size, file.bytes(full, size));
    }
    if (full < 0) {
        plain->replace(mesh.begin + pointer, size, QByteArray(size, '\0'));
        plain->replace(mesh.begin + count, 2, QByteArray(2, '\0'));
    }
    return full >= 0;
}

struct FaceKind
{
    const char *structure;
    const char *pointer; // of a mesh to its faces
    const char *count;
};

} // namespace

BlendFaces::BlendFaces(const QByteArray &content)
{
    constexpr char smooth = 1;
    const BlendFile file(content);
    const int idName = file.offsetOf("ID", "name");
    const int id = file.offsetOf("Mesh", "id");
    for (const BlendFile::Block &mesh : file.meshes) {
        std::map<int, std::vector<bool>> parts; // by number of the material
        // Polygons since 2.63, before it triangles and quads.
        for (const FaceKind &kind : {FaceKind{"MPoly", "*mpoly", "totpoly"}, FaceKind{"MFace", "*mface", "totface"}}) {
            const int pointer = file.offsetOf("Mesh", kind.pointer);
            const int count = file.offsetOf("Mesh", kind.count);
            const int flag = file.offsetOf(kind.structure, "flag");
            const int material = file.offsetOf(kind.structure, "mat_nr");
            const int size = file.sizeOf(kind.structure);
            if (!parts.empty() || pointer < 0 || count < 0 || flag < 0 || material < 0 || size <= 0)
                continue;
            const BlendFile::Block block = file.blockAt(file.pointer(mesh.begin + pointer));
            const int faces = file.number(mesh.begin + count);
            for (int f = 0; f < faces && (f + 1) * qint64(size) <= block.size; ++f) {
                const int at = block.begin + f * size;
                const QByteArray flags = file.bytes(at + flag, 1);
                parts[file.shortNumber(at + material)].push_back(!flags.isEmpty() && (flags[0] & smooth) == 0);
            }
        }
        const QByteArray name = file.bytes(mesh.begin + id + idName, 66);
        const QByteArray bare = QByteArray(name.constData()).mid(2); // behind "ME"
        if (fillSlots(file, mesh, &m_plain))
            m_warnings.append(
                QStringLiteral("mesh \"%1\": a slot of its materials is empty; its first material is used")
                    .arg(QString::fromUtf8(bare)));
        Parts &known = m_meshes[bare];
        for (const auto &part : parts)
            known.push_back(part.second);
    }
}

void BlendFaces::complete(const aiScene *scene)
{
    QByteArray last;
    size_t part = 0;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        aiMesh *const mesh = scene->mMeshes[m];
        const QByteArray name(mesh->mName.C_Str(), int(mesh->mName.length));
        const Parts parts = m_meshes.value(name);
        const auto hasFlat = [](const std::vector<bool> &faces) {
            return std::find(faces.begin(), faces.end(), true) != faces.end();
        };
        if (std::none_of(parts.begin(), parts.end(), hasFlat))
            continue;
        part = name == last ? (part + 1) % parts.size() : 0;
        last = name;
        const std::vector<bool> &isFlat = parts[part];
        // Mirroring repeats the faces.
        const bool fits = !isFlat.empty() && mesh->mNumFaces % isFlat.size() == 0 && hasNormalsByFace(*mesh);
        for (unsigned f = 0; fits && f < mesh->mNumFaces; ++f) {
            if (isFlat[f % isFlat.size()])
                makeFlat(mesh, f);
        }
        const bool isAllFlat = std::all_of(parts.begin(), parts.end(),
            [](const std::vector<bool> &faces) { return std::find(faces.begin(), faces.end(), false) == faces.end(); });
        for (unsigned f = 0; !fits && isAllFlat && hasNormalsByFace(*mesh) && f < mesh->mNumFaces; ++f)
            makeFlat(mesh, f);
        if (!fits && !(isAllFlat && hasNormalsByFace(*mesh)))
            m_warnings.append(
                QStringLiteral("mesh \"%1\": its flat faces are drawn smooth: its reader has made others of them")
                    .arg(QString::fromUtf8(name)));
    }
    m_warnings.removeDuplicates();
}

} // namespace Velmora::Kvz
