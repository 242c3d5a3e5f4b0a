// Holds a file open the way a running program or a scanner does (no share-write, no
// share-delete) until a release marker appears, for the file-in-use test.
//   velk_file_holder FILE HELD_MARKER RELEASE_MARKER
#include <windows.h>

#include <string>

namespace {

bool exists(const char* path) { return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const HANDLE file = CreateFileA(argv[1], GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return 1;
    CloseHandle(CreateFileA(argv[2], GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    // Bounded, so that a test that never releases it cannot leave it running.
    for (int waited = 0; !exists(argv[3]) && waited < 60000; waited += 10) Sleep(10);
    CloseHandle(file);
    return 0;
}
