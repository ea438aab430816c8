// SPDX-License-Identifier: MIT
#include "GL/ContextResources.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace Velmora::Kvz {

namespace {

std::string deleted; ///< The names of the objects that went, in their order.

template <char name> struct Named
{
    int number = 0;

    ~Named() { deleted += name; }
};

using A = Named<'a'>;
using B = Named<'b'>;
using C = Named<'c'>;

/// Looks for its siblings, and for itself, in its destructor.
struct Visitor
{
    ContextResources *resources = nullptr;
    bool *foundSibling = nullptr;
    bool *foundItself = nullptr;

    ~Visitor()
    {
        *foundSibling = resources->find<A>() != nullptr;
        *foundItself = resources->find<Visitor>() != nullptr;
    }
};

/// Creates another resource in its constructor.
struct Standing
{
    static ContextResources *resources;

    Standing() { resources->get<A>().number = 7; }
    ~Standing() { deleted += 's'; }
};
ContextResources *Standing::resources = nullptr;

class ContextResourcesTest : public ::testing::Test
{
protected:
    ContextResourcesTest() { deleted.clear(); }

    ContextResources resources;
};

TEST_F(ContextResourcesTest, keepOneObjectOfEachType)
{
    EXPECT_EQ(resources.find<A>(), nullptr);
    A &a = resources.get<A>();
    a.number = 1;
    resources.get<B>().number = 2;
    EXPECT_EQ(&resources.get<A>(), &a);
    EXPECT_EQ(resources.find<A>(), &a);
    EXPECT_EQ(resources.get<A>().number, 1);
    EXPECT_EQ(resources.get<B>().number, 2);
    EXPECT_EQ(resources.find<C>(), nullptr);
    ContextResources others;
    EXPECT_EQ(others.find<A>(), nullptr);
}

TEST_F(ContextResourcesTest, goInReverseOrderOfCreation)
{
    resources.get<B>();
    resources.get<A>();
    resources.get<C>();
    resources.get<B>(); // Asking again does not change the order.
    resources.clear();
    EXPECT_EQ(deleted, "cab");
    EXPECT_EQ(resources.find<A>(), nullptr);
    resources.clear();
    EXPECT_EQ(deleted, "cab");
    {
        ContextResources others;
        others.get<A>();
        others.get<B>();
    }
    EXPECT_EQ(deleted, "cabba");
}

TEST_F(ContextResourcesTest, goOneByOne)
{
    resources.get<A>();
    resources.get<B>();
    resources.release<A>();
    resources.release<C>();
    EXPECT_EQ(deleted, "a");
    EXPECT_EQ(resources.find<A>(), nullptr);
    EXPECT_NE(resources.find<B>(), nullptr);
    EXPECT_EQ(resources.get<A>().number, 0);
}

TEST_F(ContextResourcesTest, outliveThoseThatWereMadeOfThem)
{
    Standing::resources = &resources;
    resources.get<Standing>();
    EXPECT_EQ(resources.get<A>().number, 7);
    resources.clear();
    EXPECT_EQ(deleted, "sa");
}

TEST_F(ContextResourcesTest, canBeAskedWhileTheyGo)
{
    bool foundSibling = false;
    bool foundItself = true;
    resources.get<A>();
    auto &visitor = resources.get<Visitor>();
    visitor.resources = &resources;
    visitor.foundSibling = &foundSibling;
    visitor.foundItself = &foundItself;
    resources.clear();
    EXPECT_TRUE(foundSibling);
    EXPECT_FALSE(foundItself);
}

TEST_F(ContextResourcesTest, areMadeOnceForAllThreads)
{
    for (int round = 0; round < 50; ++round) {
        ContextResources shared;
        int *seen[4] = {};
        std::vector<std::thread> threads;
        for (int *&number : seen)
            threads.emplace_back([&shared, &number] { number = &shared.get<int>(); });
        for (std::thread &thread : threads)
            thread.join();
        for (const int *number : seen)
            ASSERT_EQ(number, shared.find<int>());
    }
}

} // namespace

} // namespace Velmora::Kvz
