// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/GLObject.h>

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVarLengthArray>
#include <QtCore/QVariant>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class GLSLMacroProcessor;

/// A GLSL program of any stages.
///
/// Sources pass through ShaderPreprocessor when compile() runs. link() binds the standard attributes to fixed locations
/// (va_Vertex 0, va_Normal 1, va_TexCoord 2, va_Color 3, va_Tangent 4, va_TexCoord1 5) and the samplers of scene data to
/// their fixed units, so that one vertex array serves every program.
class KVZ_GL_EXPORT ShaderProgram : public QObject, public Bindable
{
    Q_OBJECT

public:
    explicit ShaderProgram(QObject *parent = nullptr);
    /// Deletes the GL program, or drops its name when its context is not current.
    ~ShaderProgram() override;

    /// Macros and include folders for all sources. Not owned; it must live until compile() returns. Null removes it.
    void setMacroProcessor(GLSLMacroProcessor *processor);
    /// Binds fragment outputs to colours 0, 1, … in list order. Call it before link().
    void setFragDataLocations(const QStringList &names);
    /// Adds a source to a stage, such as GL_VERTEX_SHADER. Sources of one stage are separate compilation units. `name`
    /// stands for the source in messages; an empty one gives a name made of stage and number.
    void addShader(int type, const QString &source, const QString &name);
    /// Adds the text of a shader file, found by its bare name under ":/Media/Shaders" or in the macro processor's
    /// folders. A missing file makes compile() fail, with one log line that names it.
    void addShaderFromFile(int type, const QString &file);
    /// Compiles all units; false when any of them fails. The log names file and line as written, and is among
    /// takeProgramFailures().
    virtual bool compile();
    /// Links the compiled units; false if compiling or linking failed. takeProgramFailures() has the log of a failed
    /// link.
    virtual bool link();
    /// Everything that the preprocessor, the compiler and the linker said since compile() began.
    QString log() const;
    bool isLinked() const;

    /// Sets a uniform by the type that the program declares: numbers and booleans convert to float, int, uint and bool;
    /// QVector2D, QVector3D, QVector4D; QColor as four floats from 0 to 1 (three for a vec3); QRect as left, top, width,
    /// height; QSize and QPoint as two numbers; QMatrix4x4 for mat4 and, its upper left part, for mat3. A name that the
    /// program does not have is ignored; a value that cannot feed the type is refused with one log line for each name.
    /// A value that the program holds already is not sent again. The program need not be bound, but is faster when it is.
    void setUniform(const QString &name, const QVariant &value);
    /// Sets an array of floats, or of vectors laid flat. Values beyond the declared length are left out.
    void setUniform(const QString &name, const QVector<float> &values);
    /// Whether the linked program has an active uniform of that name.
    bool hasUniform(const QString &name) const;
    /// The GL location for direct glUniform calls, -1 when there is none. From now on setUniform() on this name always
    /// sends.
    int getUniformLocation(const QString &name) const;
    /// The location of an active vertex attribute, -1 when the linked program reads none of that name.
    int attributeLocation(const QString &name) const;
    /// The GL name; 0 before compile().
    unsigned int programID() const;
    /// Whether there is a source for a tessellation stage, so that triangles are drawn as patches.
    bool hasTessellation() const;

    /// Binds the program. One that is not linked binds no program, and drawing with it fails.
    void bind() override;
    void unbind() override;

private:
    struct Unit
    {
        int type;
        QString source;
        QString name;
        bool fromFile;
    };
    struct Uniform
    {
        int location;
        unsigned int type;
        int size; ///< Elements of an array; 1 otherwise.
        QByteArray value; ///< What the program holds; empty when not known.
        bool cached;
        bool refused; ///< A value that could not feed it has been reported.
    };

    void deleteProgram();
    bool compileUnit(const Unit &unit, int number);
    void keepFailure();
    void readUniforms();
    void assignFixedUnits();
    Uniform *findUniform(const QString &name);
    void send(Uniform &uniform, const void *data, int bytes, int elements);

    unsigned int m_name = 0;
    GLObject m_owner;
    GLSLMacroProcessor *m_macroProcessor = nullptr;
    QStringList m_fragDataLocations;
    QVector<Unit> m_units;
    QString m_log;
    bool m_compiled = false;
    bool m_linked = false;
    bool m_isFailureKept = false; ///< For takeProgramFailures(), since compile() began.
    mutable QHash<QString, Uniform> m_uniforms;
    QHash<QString, int> m_attributes;
    QVarLengthArray<int, 4> m_saved;
};

} // namespace Velmora::Kvz
