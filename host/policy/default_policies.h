// The policy files that flowhost writes where there are none: every setting with its default and a
// line on what it does.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace flow::host {

// DefaultPolicy gives the text of the policy file of that name, empty for a name that it does not
// know.
std::string DefaultPolicy(std::string_view file_name);

// The names of all policy files.
std::vector<std::string_view> PolicyFileNames();

// WriteDefaultPolicy writes the default policy for path's file name, and the directory if need be.
// False, and why in *error, when it cannot.
bool WriteDefaultPolicy(const std::filesystem::path& path, std::error_code* error);

}  // namespace flow::host
