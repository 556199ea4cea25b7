#pragma once

#include <memory>

namespace glintmark::test {

/// Makes the subject of a suite of contract tests. `&makeSubject<Contract, Implementation>` is the
/// suite's parameter, so that every test gets a fresh subject.
template <typename Subject, typename Implementation>
std::unique_ptr<Subject> makeSubject() {
    return std::make_unique<Implementation>();
}

}  // namespace glintmark::test
