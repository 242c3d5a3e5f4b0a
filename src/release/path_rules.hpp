#pragma once

#include <string>

// What a manifest may name. The updater runs with administrator rights, so a file entry may
// only name a plain file and a place inside the installation folder; these rules hold on
// every system, since one manifest serves them all. Each returns the broken rule as text,
// or an empty text.
namespace velk::updater {

// A single file name: not empty, no separator, no drive or stream colon, no "." or "..",
// no control character or character Windows refuses, no trailing dot or blank, and not a
// device name such as "CON" or "com1.txt".
std::string fileNameProblem(const std::string& name);

// A path relative to the installation folder that names a file inside it: no leading
// separator, drive, UNC prefix or colon, no ".." or "." segment, no empty last segment, and
// every segment allowed as a file name.
std::string targetPathProblem(const std::string& targetPath);

// Whether a download URL is absolute: only a leading "http://" or "https://" (exact case)
// makes it so; any other text is a path below a download base as a whole.
bool isHttpUrl(const std::string& url);

// The path of a download URL (absolute or relative to a base): no ".." segment, literal or
// percent-encoded, and no control character, so a request stays below its base.
std::string urlPathProblem(const std::string& url);

}  // namespace velk::updater
