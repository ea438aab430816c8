// SPDX-License-Identifier: MIT
#include "ImageComplaints.h"

#include <QtCore/QMutex>

#include <tiffio.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

thread_local ImageComplaints *readingImage = nullptr;

// What was in force before the first of several threads that read images.
QMutex mutex;
int readers = 0;
QtMessageHandler formerHandler = nullptr;
TIFFErrorHandler formerWarnings = nullptr;
TIFFErrorHandler formerErrors = nullptr;

} // namespace

ImageComplaints::ImageComplaints()
{
    readingImage = this;
    const QMutexLocker lock(&mutex);
    if (readers++ > 0)
        return;
    formerHandler = qInstallMessageHandler(handle);
    formerWarnings = TIFFSetWarningHandler(nullptr);
    formerErrors = TIFFSetErrorHandler(nullptr);
}

ImageComplaints::~ImageComplaints()
{
    readingImage = nullptr;
    const QMutexLocker lock(&mutex);
    if (--readers > 0)
        return;
    qInstallMessageHandler(formerHandler);
    TIFFSetWarningHandler(formerWarnings);
    TIFFSetErrorHandler(formerErrors);
}

void ImageComplaints::handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const bool isComplaint = type == QtWarningMsg || type == QtCriticalMsg;
    if (!readingImage || !isComplaint) {
        if (formerHandler)
            formerHandler(type, context, message);
        return;
    }
    // Other categories complain of colour profiles and the like. Bytes that stand between markers are passed over.
    const bool isOfData = !context.category || std::strcmp(context.category, "default") == 0;
    if (isOfData && readingImage->m_damage.isEmpty() && !message.contains(QLatin1String("extraneous bytes")))
        readingImage->m_damage = message.simplified();
}

} // namespace Velmora::Kvz
