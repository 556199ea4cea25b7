#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::test {

/// An object in a file of test cases. Reading a key that the object lacks, or a value of another
/// type, ends the test program, so that a misspelt key cannot pass for an absent value.
class VectorObject {
public:
    struct Value;
    explicit VectorObject(std::shared_ptr<const Value> value);

    bool has(const std::string& key) const;  ///< Also true for null.

    /// Absent for null.
    std::optional<std::string> text(const std::string& key) const;
    std::optional<VectorObject> object(const std::string& key) const;

    /// Text in base64, decoded.
    std::string bytes(const std::string& key) const;
    bool boolean(const std::string& key) const;
    std::int64_t integer(const std::string& key) const;
    std::vector<VectorObject> list(const std::string& key) const;

private:
    std::shared_ptr<const Value> value_;
};

/// One case. If it is `firm`, only the outcome that it names passes the test; otherwise every
/// outcome but a crash passes.
struct VectorCase : VectorObject {
    explicit VectorCase(const VectorObject& object) : VectorObject(object), firm(boolean("firm")) {}

    /// For SCOPED_TRACE: which case it is and what it is about.
    std::string label() const { return *text("id") + ": " + *text("why"); }

    bool firm;
};

/// The cases of the file `name`.json. It is in the folder that the environment variable
/// GLINTMARK_VECTORS names, or in tests/data/vectors if the variable is not set. Without the
/// variable, cases from real sites (`name` ends in "_real") are read from shared/vectors beside the
/// checkout. A file that is missing or has no cases fails the test. The only exception is a missing
/// file of cases from real sites, if the file with the other cases of their form is there: the
/// result is then empty, and the test skips itself.
std::vector<VectorCase> loadVectors(const std::string& name);

}  // namespace glintmark::test
