// SPDX-License-Identifier: MIT
#pragma once

#include <epoxy/gl.h>

#include <functional>
#include <tuple>
#include <type_traits>
#include <vector>

namespace Velmora::Kvz {

/// Replaces a GL function while it lives and records every call to it, from any library of the process. Calls are
/// passed on to the driver unless `replacement` is set. Only one may exist for each function.
///
///     GLCallRecorder<&epoxy_glViewport> viewports;
///     pass.start(nullptr);
///     EXPECT_EQ(viewports.calls.size(), 1u);
template <auto Entry, typename Function = std::remove_pointer_t<decltype(Entry)>> class GLCallRecorder;

template <auto Entry, typename Result, typename... Arguments> class GLCallRecorder<Entry, Result (*)(Arguments...)>
{
public:
    using Call = std::tuple<Arguments...>;

    GLCallRecorder()
    {
        s_active = this;
        *Entry = &record;
    }
    ~GLCallRecorder()
    {
        *Entry = m_driver;
        s_active = nullptr;
    }
    GLCallRecorder(const GLCallRecorder &) = delete;
    GLCallRecorder &operator=(const GLCallRecorder &) = delete;

    /// Calls the driver's function.
    Result forward(Arguments... arguments)
    {
        // On its first call a function is resolved, which overwrites the pointer, and then called through it.
        struct StepAside
        {
            GLCallRecorder *recorder;
            ~StepAside()
            {
                recorder->m_driver = *Entry;
                *Entry = &record;
            }
        } stepAside{this};
        *Entry = m_driver;
        return m_driver(arguments...);
    }

    std::vector<Call> calls;
    std::function<void(Arguments...)> onCall; ///< Called first, with each call's arguments.
    std::function<Result(Arguments...)> replacement; ///< Called instead of the driver.

private:
    static Result record(Arguments... arguments)
    {
        s_active->calls.emplace_back(arguments...);
        if (s_active->onCall)
            s_active->onCall(arguments...);
        return s_active->replacement ? s_active->replacement(arguments...) : s_active->forward(arguments...);
    }

    static inline GLCallRecorder *s_active = nullptr;
    Result (*m_driver)(Arguments...) = *Entry;
};

} // namespace Velmora::Kvz
