#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace zebl
{

/// A message to the registration service: a JSON object with a type.
class QuillmereDataScheme
{
public:
    static const std::string KEY_TYPE;
    static const std::string KEY_ADDRESS;
    static const std::string VALUE_TYPE_REGISTER;

    explicit QuillmereDataScheme(const std::string& type) { mMessage[KEY_TYPE] = type; }

    virtual ~QuillmereDataScheme() = default;

    QuillmereDataScheme(const QuillmereDataScheme&) = default;
    QuillmereDataScheme& operator=(const QuillmereDataScheme&) = default;

    /// Replaces the contents of `bytes` with the message as compact JSON in UTF-8, without a trailing zero. A byte
    /// that is not valid UTF-8 becomes U+FFFD.
    void DumpToByteVector(std::vector<unsigned char>& bytes) const;

protected:
    nlohmann::json mMessage;
};

/// Registers the sender under an address.
class QuillmereDataSchemeRegister : public QuillmereDataScheme
{
public:
    explicit QuillmereDataSchemeRegister(const std::string& address) : QuillmereDataScheme(VALUE_TYPE_REGISTER)
    {
        mMessage[KEY_ADDRESS] = address;
    }
};

} // namespace zebl
