#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::test {

/// An object in a file of test cases. Its readers end the test program when the file does not have
/// what they ask for, so that a misspelt key cannot pass for an absent value.
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

/// One case: with `firm` exactly the outcome it names is wanted, otherwise any that is not a crash.
struct VectorCase : VectorObject {
    explicit VectorCase(const VectorObject& object) : VectorObject(object), firm(boolean("firm")) {}

    /// For SCOPED_TRACE: which case it is and what it is about.
    std::string label() const { return *text("id") + ": " + *text("why"); }

    bool firm;
};

/// The cases of the file `name`.json in the folder that the environment names as
/// GLINTMARK_VECTORS, where a missing file counts as empty. Without such a folder those of
/// tests/data/vectors; cases from real sites (`name` ends in "_real") are not kept there but read
/// from the folder shared/vectors beside the checkout, as far as there is one.
std::vector<VectorCase> loadVectors(const std::string& name);

}  // namespace glintmark::test
