// SPDX-License-Identifier: MIT
#include "ImageArrayPlan.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr qint64 tooMuch = std::numeric_limits<qint64>::max();

/// Images that share an array.
struct Group
{
    qint64 width = 1;
    qint64 height = 1;
    qint64 widthStep = 1; ///< Its sides are multiples of these.
    qint64 heightStep = 1;
    std::vector<int> images;

    qint64 count() const { return qint64(images.size()); }
    /// With mip levels.
    qint64 bytes() const { return width * height * 4 * count() * 4 / 3; }
};

qint64 multipleFrom(qint64 least, qint64 step)
{
    return (least + step - 1) / step * step;
}

/// What holds the images of both, whose list is left empty.
Group unionOf(const Group &a, const Group &b)
{
    Group both;
    both.widthStep = std::lcm(a.widthStep, b.widthStep);
    both.heightStep = std::lcm(a.heightStep, b.heightStep);
    both.width = multipleFrom(std::max(a.width, b.width), both.widthStep);
    both.height = multipleFrom(std::max(a.height, b.height), both.heightStep);
    return both;
}

qint64 costOf(const Group &a, const Group &b, const ImageArrayLimits &limits)
{
    const Group both = unionOf(a, b);
    if (both.width > limits.side || both.height > limits.side || a.count() + b.count() > limits.layers)
        return tooMuch;
    return both.width * both.height * (a.count() + b.count()) - a.width * a.height * a.count()
        - b.width * b.height * b.count();
}

/// One group for each size, more where an array has too few layers, in the order of the images.
std::vector<Group> groupsOf(
    const QVector<QSize> &sizes, const QVector<PlannedImage> &images, const ImageArrayLimits &limits)
{
    std::vector<Group> groups;
    for (int i = 0; i < sizes.size(); ++i) {
        const QSize size = sizes[i];
        auto group = std::find_if(groups.begin(), groups.end(), [&](const Group &other) {
            return other.width == size.width() && other.height == size.height() && other.count() < limits.layers;
        });
        if (group == groups.end()) {
            groups.emplace_back();
            group = groups.end() - 1;
            group->width = size.width();
            group->height = size.height();
        }
        group->images.push_back(i);
        if (images[i].isNearest) {
            group->widthStep = size.width();
            group->heightStep = size.height();
        }
    }
    return groups;
}

/// Joins groups, the cheapest pair first, until there are as few as there may be or no two fit into one.
void join(std::vector<Group> *groups, const ImageArrayLimits &limits)
{
    struct Partner
    {
        size_t group;
        qint64 cost;
    };
    const auto partnerOf = [&](size_t i) {
        Partner best{i, tooMuch};
        for (size_t k = i + 1; k < groups->size(); ++k) {
            const qint64 cost = costOf((*groups)[i], (*groups)[k], limits);
            if (cost < best.cost)
                best = {k, cost};
        }
        return best;
    };
    std::vector<Partner> partners;
    while (groups->size() > size_t(limits.arrays)) {
        // Partners are looked for once, and again where one of a pair is gone.
        for (size_t i = partners.size(); i < groups->size(); ++i)
            partners.push_back(partnerOf(i));
        const auto cheapest = std::min_element(
            partners.begin(), partners.end(), [](const Partner &a, const Partner &b) { return a.cost < b.cost; });
        if (cheapest->cost == tooMuch)
            return;
        const auto first = size_t(cheapest - partners.begin());
        const size_t second = cheapest->group;
        Group both = unionOf((*groups)[first], (*groups)[second]);
        both.images = (*groups)[first].images;
        const std::vector<int> &others = (*groups)[second].images;
        both.images.insert(both.images.end(), others.begin(), others.end());
        std::sort(both.images.begin(), both.images.end());
        (*groups)[first] = both;
        groups->erase(groups->begin() + std::ptrdiff_t(second));
        partners.erase(partners.begin() + std::ptrdiff_t(second));
        for (size_t i = 0; i < partners.size(); ++i) {
            const bool isGone = partners[i].group == first || partners[i].group == second;
            if (partners[i].group > second)
                --partners[i].group;
            if (i == first || isGone) {
                partners[i] = partnerOf(i);
            } else if (i < first) {
                const qint64 cost = costOf((*groups)[i], (*groups)[first], limits);
                if (cost < partners[i].cost)
                    partners[i] = {first, cost};
            }
        }
    }
}

/// The arrays of images of these sizes.
std::vector<Group> joinedGroups(
    const QVector<QSize> &sizes, const QVector<PlannedImage> &images, const ImageArrayLimits &limits)
{
    std::vector<Group> groups = groupsOf(sizes, images, limits);
    join(&groups, limits);
    if (groups.size() > size_t(limits.arrays)) {
        // Better uneven squares than none.
        for (Group &group : groups) {
            group.widthStep = 1;
            group.heightStep = 1;
        }
        join(&groups, limits);
    }
    // What still has no array: as few images as can be.
    while (groups.size() > size_t(limits.arrays)) {
        groups.erase(std::min_element(
            groups.begin(), groups.end(), [](const Group &a, const Group &b) { return a.count() < b.count(); }));
    }
    return groups;
}

qint64 bytesOf(const std::vector<Group> &groups)
{
    return std::accumulate(
        groups.begin(), groups.end(), qint64(0), [](qint64 sum, const Group &group) { return sum + group.bytes(); });
}

/// Halves as many of the largest images as it takes to save `excess` bytes, or all of that size; false where nothing is left to
/// be halved.
bool halveLargest(QVector<QSize> *sizes, qint64 excess)
{
    const auto area = [](const QSize &size) { return qint64(size.width()) * size.height(); };
    const auto largest = std::max_element(
        sizes->begin(), sizes->end(), [&](const QSize &a, const QSize &b) { return area(a) < area(b); });
    if (largest == sizes->end() || area(*largest) <= 1)
        return false;
    const QSize from = *largest;
    const QSize to(std::max(1, from.width() / 2), std::max(1, from.height() / 2));
    const qint64 saving = std::max<qint64>(1, (area(from) - area(to)) * 16 / 3);
    qint64 count = (excess + saving - 1) / saving;
    for (int i = sizes->size(); i-- > 0 && count > 0;) {
        if ((*sizes)[i] == from) {
            (*sizes)[i] = to;
            --count;
        }
    }
    return true;
}

} // namespace

ImageArrayPlan planImageArrays(const QVector<PlannedImage> &images, const ImageArrayLimits &limits)
{
    QVector<QSize> sizes;
    for (const PlannedImage &image : images) {
        const bool isTooLarge = std::max(image.size.width(), image.size.height()) > limits.side;
        sizes.append(isTooLarge
                ? image.size.scaled(limits.side, limits.side, Qt::KeepAspectRatio).expandedTo(QSize(1, 1))
                : image.size);
    }
    std::vector<Group> groups = joinedGroups(sizes, images, limits);
    while (bytesOf(groups) > limits.bytes && halveLargest(&sizes, bytesOf(groups) - limits.bytes))
        groups = joinedGroups(sizes, images, limits);

    ImageArrayPlan plan;
    plan.places.resize(images.size());
    for (const Group &group : groups) {
        for (int layer = 0; layer < int(group.images.size()); ++layer) {
            const int image = group.images[size_t(layer)];
            plan.places[image] = {plan.arrays.size(), layer, sizes[image]};
        }
        plan.arrays.append({QSize(int(group.width), int(group.height)), int(group.images.size())});
    }
    return plan;
}

} // namespace Velmora::Kvz
