// Registry keys as settings files.
//
// A key is the file ROOT/a/b.conf, where a, b are the components of its name with the ASCII letters in lower case. ROOT
// is /etc for HKEY_LOCAL_MACHINE, and $XDG_CONFIG_HOME or else ~/.config for HKEY_CURRENT_USER. A leading component
// "Software", under which all programs keep their keys, is dropped: "Software\Kavotra\MpdSource" of the machine is
// /etc/kavotra/mpdsource.conf. A folder ROOT/a/b is a key too, one without values that keys can be opened below.
//
// A few values can be set by an environment variable instead (kOverrides): it has the form of a value in a settings
// file, wins over the file, and makes the key exist.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/posix/annotated_lock.h"
#include "platform/posix/handles.h"
#include "platform/posix/immortal.h"
#include "platform/posix/last_error.h"
#include "platform/posix/settings_file.h"
#include "platform/posix/settings_for_test.h"
#include "platform/posix/unique_fd.h"
#include "platform/posix/utf8.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

enum class Root { kMachine, kUser };

struct KeyName {
    Root root;
    std::string path;  // components joined by '/', "Software" dropped; empty for the root itself
};

struct Override {
    Root root;
    const char* path;
    const char* valueName;
    const char* variable;
};
constexpr std::array kOverrides{Override{Root::kMachine, "kavotra/mpdsource", "log", "KAVOTRA_MPDSOURCE_LOG"}};

class RegistryKey final : public KernelObject {
  public:
    RegistryKey(KeyName name, Settings values) : m_name(std::move(name)), m_values(std::move(values)) {}

    const KeyName& Name() const { return m_name; }
    const Settings& Values() const { return m_values; }

  private:
    const KeyName m_name;
    const Settings m_values;
};

// --- Where the files are ---

struct TestRoots {
    Lock lock;
    std::optional<std::pair<std::string, std::string>> folders PLATFORM_GUARDED_BY(lock);  // machine, user
};

TestRoots& RootsForTest() {
    static Immortal<TestRoots> roots;
    return *roots;
}

std::optional<std::string> AbsoluteFolderFrom(const char* variable) {
    const char* const value = std::getenv(variable);
    return value && *value == '/' ? std::optional<std::string>(value) : std::nullopt;
}

// Empty for a user who has no home.
std::optional<std::string> FolderOf(Root root) {
    {
        TestRoots& forTest = RootsForTest();
        const LockHold hold(forTest.lock);
        if (forTest.folders) {
            return root == Root::kMachine ? forTest.folders->first : forTest.folders->second;
        }
    }
    if (root == Root::kMachine) {
        return "/etc";
    }
    if (std::optional<std::string> folder = AbsoluteFolderFrom("XDG_CONFIG_HOME")) {
        return folder;
    }
    std::optional<std::string> home = AbsoluteFolderFrom("HOME");
    return home ? std::optional(*home + "/.config") : std::nullopt;
}

// --- Names ---

// Empty for a text that is no valid Unicode.
std::optional<std::string> ToUtf8(std::wstring_view text) {
    std::string utf8;
    for (const wchar_t unit : text) {
        const auto value = static_cast<char32_t>(unit);
        if (!IsScalarValue(value)) {
            return std::nullopt;
        }
        char encoded[kMaxUtf8Length];
        utf8.append(encoded, EncodeUtf8(value, encoded));
    }
    return utf8;
}

// Appends one component of a key's name. False when it could lead out of the folder that the key is in.
bool AppendComponent(KeyName& name, std::string_view component, bool first) {
    if (component == "." || component == ".." || component.find('/') != std::string_view::npos) {
        return false;
    }
    if (first && EqualsIgnoringAsciiCase(component, "Software")) {
        return true;
    }
    if (!name.path.empty()) {
        name.path.push_back('/');
    }
    for (const char c : component) {
        name.path.push_back(AsciiLower(c));
    }
    return true;
}

// The name of the key `subKey` below `key`; the result is the Win32 error.
LSTATUS Resolve(HKEY key, LPCWSTR subKey, KeyName& name) {
    bool atRoot = true;
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER) {
        name = {key == HKEY_LOCAL_MACHINE ? Root::kMachine : Root::kUser, {}};
    } else {
        const std::shared_ptr<RegistryKey> open = ObjectOf<RegistryKey>(reinterpret_cast<HANDLE>(key));
        if (!open) {
            return ERROR_INVALID_HANDLE;
        }
        name = open->Name();
        atRoot = false;
    }
    if (!subKey || *subKey == L'\0') {
        return ERROR_SUCCESS;
    }
    const std::optional<std::string> text = ToUtf8(subKey);
    if (!text) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (text->starts_with('\\')) {
        return ERROR_BAD_PATHNAME;
    }
    for (std::string_view rest = *text; !rest.empty();) {
        const std::string_view component = rest.substr(0, rest.find('\\'));
        rest.remove_prefix(component.size() == rest.size() ? rest.size() : component.size() + 1);
        if (!component.empty() && !AppendComponent(name, component, atRoot)) {
            return ERROR_FILE_NOT_FOUND;
        }
        atRoot = false;
    }
    return ERROR_SUCCESS;
}

// --- Files ---

bool IsFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The whole file. Anything but a regular file of sensible size is taken for damage, not read.
LSTATUS ReadSettings(const std::string& path, std::string& text) {
    constexpr off_t kLargest = 64 * 1024;
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        return errno == ENOTDIR ? ERROR_FILE_NOT_FOUND : static_cast<LSTATUS>(ErrorFromErrno(errno));
    }
    struct stat status {};
    if (fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > kLargest) {
        return ERROR_BADDB;
    }
    text.resize(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = read(fd.get(), text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return static_cast<LSTATUS>(ErrorFromErrno(errno));
        }
        if (count == 0) {
            break;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    text.resize(done);
    return ERROR_SUCCESS;
}

LSTATUS LoadFromFile(const KeyName& name, Settings& values) {
    const std::optional<std::string> folder = FolderOf(name.root);
    if (!folder) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (name.path.empty()) {
        return ERROR_SUCCESS;
    }
    std::string text;
    const LSTATUS error = ReadSettings(*folder + '/' + name.path + ".conf", text);
    if (error == ERROR_FILE_NOT_FOUND && IsFolder(*folder + '/' + name.path)) {
        return ERROR_SUCCESS;
    }
    if (error == ERROR_SUCCESS) {
        values = Settings::Parse(text);
    }
    return error;
}

// The key's values, from its file and the environment; the result is the Win32 error.
LSTATUS Load(const KeyName& name, Settings& values) {
    LSTATUS error = LoadFromFile(name, values);
    for (const Override& entry : kOverrides) {
        const char* const text = std::getenv(entry.variable);
        if (!text || entry.root != name.root || entry.path != name.path) {
            continue;
        }
        if (std::optional<SettingValue> value = ParseSettingValue(text)) {
            values.Set(entry.valueName, std::move(*value));
            error = ERROR_SUCCESS;
        }
    }
    return error;
}

bool MayWrite(const KeyName& name) {
    const std::optional<std::string> folder = FolderOf(name.root);
    return folder && access((*folder + '/' + name.path + ".conf").c_str(), W_OK) == 0;
}

// Makes every folder on the way to `path` that is missing. The last element is not made.
bool MakeFoldersTo(const std::string& path, mode_t mode) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string folder = path.substr(0, slash);
        if (!IsFolder(folder) && mkdir(folder.c_str(), mode) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

// Creates the key's empty file. A user's settings are that user's alone; the machine's can be read by everyone.
LSTATUS CreateSettings(const KeyName& name) {
    const std::optional<std::string> folder = FolderOf(name.root);
    if (!folder) {
        return ERROR_FILE_NOT_FOUND;
    }
    const bool shared = name.root == Root::kMachine;
    const std::string path = *folder + '/' + name.path + ".conf";
    if (MakeFoldersTo(path, shared ? 0755 : 0700)) {
        const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, shared ? 0644 : 0600));
        if (fd) {
            return ERROR_SUCCESS;
        }
    }
    return errno == EROFS ? ERROR_ACCESS_DENIED : static_cast<LSTATUS>(ErrorFromErrno(errno));
}

LSTATUS OpenKey(KeyName name, Settings values, REGSAM access, PHKEY result) {
    if ((access & KEY_SET_VALUE) != 0 && !MayWrite(name)) {
        return ERROR_ACCESS_DENIED;
    }
    const HANDLE handle = OpenHandle(std::make_shared<RegistryKey>(std::move(name), std::move(values)));
    if (!handle) {
        return static_cast<LSTATUS>(GetLastError());
    }
    *result = reinterpret_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

LSTATUS CreateOrOpenKey(HKEY key, LPCWSTR subKey, REGSAM access, PHKEY result, LPDWORD disposition) {
    KeyName name{};
    if (const LSTATUS error = Resolve(key, subKey, name); error != ERROR_SUCCESS) {
        return error;
    }
    Settings values;
    LSTATUS error = Load(name, values);
    DWORD outcome = REG_OPENED_EXISTING_KEY;
    if (error == ERROR_FILE_NOT_FOUND) {
        error = CreateSettings(name);
        if (error == ERROR_SUCCESS) {
            outcome = REG_CREATED_NEW_KEY;
        } else if (error == ERROR_FILE_EXISTS) {
            error = Load(name, values);  // another process was faster
        }
    }
    if (error == ERROR_SUCCESS) {
        error = OpenKey(std::move(name), std::move(values), access, result);
    }
    if (error == ERROR_SUCCESS && disposition) {
        *disposition = outcome;
    }
    return error;
}

LSTATUS OpenExistingKey(HKEY key, LPCWSTR subKey, REGSAM access, PHKEY result) {
    KeyName name{};
    if (const LSTATUS error = Resolve(key, subKey, name); error != ERROR_SUCCESS) {
        return error;
    }
    Settings values;
    if (const LSTATUS error = Load(name, values); error != ERROR_SUCCESS) {
        return error;
    }
    return OpenKey(std::move(name), std::move(values), access, result);
}

LSTATUS CopyValue(const SettingValue& value, LPDWORD type, LPBYTE data, LPDWORD dataSize) {
    if (type) {
        *type = value.type;
    }
    if (!dataSize) {
        return ERROR_SUCCESS;
    }
    const auto size = static_cast<DWORD>(value.data.size());
    const DWORD room = std::exchange(*dataSize, size);
    if (!data) {
        return ERROR_SUCCESS;
    }
    if (room < size) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, value.data.data(), size);
    return ERROR_SUCCESS;
}

}  // namespace

SettingsRootsForTest::SettingsRootsForTest(std::string machineRoot, std::string userRoot) {
    TestRoots& roots = RootsForTest();
    const LockHold hold(roots.lock);
    roots.folders.emplace(std::move(machineRoot), std::move(userRoot));
}

SettingsRootsForTest::~SettingsRootsForTest() {
    TestRoots& roots = RootsForTest();
    const LockHold hold(roots.lock);
    roots.folders.reset();
}

}  // namespace kvmpd::platform

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD /*options*/, REGSAM access, PHKEY result) {
    if (!result) {
        return ERROR_INVALID_PARAMETER;
    }
    *result = nullptr;
    try {
        return kvmpd::platform::OpenExistingKey(key, subKey, access, result);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR /*className*/, DWORD /*options*/,
                        REGSAM access, const SECURITY_ATTRIBUTES* /*attributes*/, PHKEY result, LPDWORD disposition) {
    if (!result || !subKey || reserved != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    *result = nullptr;
    try {
        return kvmpd::platform::CreateOrOpenKey(key, subKey, access, result, disposition);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataSize) {
    using namespace kvmpd::platform;
    if (reserved || (data && !dataSize)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER) {
        return ERROR_FILE_NOT_FOUND;
    }
    const std::shared_ptr<RegistryKey> open = ObjectOf<RegistryKey>(reinterpret_cast<HANDLE>(key));
    if (!open) {
        return ERROR_INVALID_HANDLE;
    }
    try {
        // Without a name it is the key's default value that is meant; a settings file cannot hold one.
        const std::optional<std::string> name = ToUtf8(valueName ? valueName : L"");
        const SettingValue* const value = name ? open->Values().Find(*name) : nullptr;
        return value ? CopyValue(*value, type, data, dataSize) : ERROR_FILE_NOT_FOUND;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

LSTATUS RegCloseKey(HKEY key) {
    using namespace kvmpd::platform;
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER) {
        return ERROR_SUCCESS;
    }
    return CloseHandleOf<RegistryKey>(reinterpret_cast<HANDLE>(key)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}
