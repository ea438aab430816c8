// SPDX-License-Identifier: MIT
#include <Chain/InputValue.h>

#include <Chain/FrameValues.h>
#include <Chain/PassInfo.h>

#include <QtCore/QDir>
#include <QtCore/QRect>

namespace Velmora::Kvz {

InputValue readInputValue(const InputInfo &input, const QVariant &given, const QString &folder)
{
    InputValue read;
    if (!convertValue(given, input.type, &read.value)) {
        read.problem = InputValue::Problem::WrongType;
    } else if (input.name == FrameValues::viewport && read.value.isValid() && read.value.toRect().size().isEmpty()) {
        read.problem = InputValue::Problem::EmptyViewport;
    } else if (input.imageFile != ImageFileUse::None) {
        const QString name = read.value.toString();
        if (input.namesFile(name) && QDir::isRelativePath(name))
            read.value = QDir::cleanPath(QDir(folder).absoluteFilePath(name));
    }
    return read;
}

} // namespace Velmora::Kvz
