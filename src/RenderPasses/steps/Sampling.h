// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

namespace Velmora::Kvz {

class Texture;

/// Gives a texture linear filters and clamps it to its edges. It keeps both, even when it is another pass's.
void sampleLinearly(Texture *texture);

/// Gives a texture linear filters, which it keeps, and leaves its wrap modes alone.
void filterLinearly(Texture *texture);

/// Gives a plain 2D texture linear filters for a scope, and its own back afterwards.
class LinearFilters
{
public:
    explicit LinearFilters(Texture *texture);
    ~LinearFilters();

private:
    Q_DISABLE_COPY(LinearFilters)

    Texture *m_texture;
    int m_min;
    int m_mag;
};

} // namespace Velmora::Kvz
