#pragma once

namespace glintmark {

/// A deleter for std::unique_ptr that calls a C library's function.
template <auto release>
struct ReleaseWith {
    template <typename T>
    void operator()(T* pointer) const {
        release(pointer);
    }
};

}  // namespace glintmark
