#include "director/ResultCache.h"

#include <QCryptographicHash>
#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace director {

namespace {

// A new layout gets a new version line: entries of the old one then read as misses.
const QByteArray VERSION_LINE = QByteArrayLiteral("povrun result cache 1\n");
const QString FILE_PLACEHOLDER = QStringLiteral("${file}");
constexpr int KEY_LENGTH = 64;  // hex digits of a SHA-256
constexpr int SHARD_LENGTH = 2; // hex digits naming the subfolder
constexpr std::size_t MAX_QUEUED = 4096;

QByteArray sha256Hex(const QByteArray& bytes) {
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

// Adds one field with its length in front, so that no two lists of fields hash alike.
void addField(QCryptographicHash& hash, const QByteArray& field) {
    hash.addData(QByteArray::number(field.size()) + ':');
    hash.addData(field);
}

void addWords(QCryptographicHash& hash, const QStringList& words, const QString& file) {
    addField(hash, QByteArray::number(words.size()));
    for (QString word : words)
        addField(hash, word.replace(file, FILE_PLACEHOLDER).toUtf8());
}

// The whole content of a file; false when it cannot be opened or read.
bool readWhole(const char* path, QByteArray& bytes) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    bytes.clear();
    char buffer[65536];
    ssize_t got;
    while ((got = ::read(fd, buffer, sizeof buffer)) != 0) {
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            break;
        bytes.append(buffer, static_cast<int>(got));
    }
    ::close(fd);
    return got == 0;
}

bool writeWhole(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        left -= written;
    }
    return true;
}

// Reads one "\n"-ended line of `bytes` from `at`; false when there is none.
bool takeLine(const QByteArray& bytes, int& at, QByteArray& line) {
    const int end = bytes.indexOf('\n', at);
    if (end < 0)
        return false;
    line = bytes.mid(at, end - at);
    at = end + 1;
    return true;
}

// The output an entry holds, when the entry checks out as one for `key`.
bool outputOfEntry(const QByteArray& entry, const QByteArray& key, QByteArray& output) {
    if (!entry.startsWith(VERSION_LINE))
        return false;
    int at = VERSION_LINE.size();
    QByteArray line;
    if (!takeLine(entry, at, line) || line != key || !takeLine(entry, at, line))
        return false;
    bool ok = false;
    const int length = line.toInt(&ok);
    // The rest is the output, a line feed, the checksum and a line feed, nothing more.
    if (!ok || length < 0 || line != QByteArray::number(length) ||
        entry.size() - at != length + 1 + KEY_LENGTH + 1)
        return false;
    const int sumAt = at + length + 1;
    if (entry.at(sumAt - 1) != '\n' || entry.at(entry.size() - 1) != '\n' ||
        entry.mid(sumAt, KEY_LENGTH) != sha256Hex(entry.left(sumAt)))
        return false;
    output = entry.mid(at, length);
    return true;
}

} // namespace

QByteArray cacheEntryBytes(const QByteArray& key, const QByteArray& output) {
    QByteArray bytes = VERSION_LINE + key + '\n' + QByteArray::number(output.size()) + '\n';
    bytes += output + '\n';
    bytes += sha256Hex(bytes) + '\n';
    return bytes;
}

ResultCache::ResultCache(const QString& folder)
    : root(folder), rootPath(QFile::encodeName(folder).toStdString()) {
    std::error_code error;
    std::filesystem::create_directories(rootPath, error);
    if (error || !std::filesystem::is_directory(rootPath, error)) {
        usable = false;
        storing = false;
        std::cerr << "povrun: cannot use the cache folder " << rootPath << ": "
                  << (error ? error.message() : std::string("not a folder"))
                  << "; the run goes on without it" << std::endl;
    }
}

QByteArray ResultCache::identityOf(const std::string& program) {
    std::lock_guard<std::mutex> lock(identityMutex);
    const auto known = identities.find(program);
    if (known != identities.end())
        return known->second;
    QByteArray bytes;
    QByteArray identity;
    if (readWhole(program.c_str(), bytes)) {
        identity = "sha256 " + sha256Hex(bytes);
    } else {
        // A program that may be run but not read: its size, time and inode at least.
        struct stat info {};
        ::stat(program.c_str(), &info);
        identity = "stat " + QByteArray::number(static_cast<qlonglong>(info.st_size)) + ' ' +
                   QByteArray::number(static_cast<qlonglong>(info.st_mtim.tv_sec)) + '.' +
                   QByteArray::number(static_cast<qlonglong>(info.st_mtim.tv_nsec)) + ' ' +
                   QByteArray::number(static_cast<qulonglong>(info.st_ino));
    }
    identities.emplace(program, identity);
    return identity;
}

QByteArray ResultCache::driverKey(const mechanism::driver_t& driver) {
    QCryptographicHash hash(QCryptographicHash::Sha256);
    addField(hash, VERSION_LINE);
    for (const mechanism::tool_t* tool :
         {static_cast<const mechanism::tool_t*>(&driver.prover), &driver.reader}) {
        const std::string program = tool->path.string();
        addField(hash, QByteArray::fromStdString(program));
        addField(hash, identityOf(program));
    }
    addField(hash, QByteArray::number(driver.prover.input));
    addField(hash, driver.ext.toUtf8());
    return hash.result();
}

QByteArray ResultCache::jobKey(const QByteArray& driverKey, const QStringList& proverArgs,
                               const QStringList& readerArgs, const QString& secondaryFile) {
    QByteArray question;
    if (!readWhole(QFile::encodeName(secondaryFile).constData(), question))
        return QByteArray();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    addField(hash, driverKey);
    addWords(hash, proverArgs, secondaryFile);
    addWords(hash, readerArgs, secondaryFile);
    addField(hash, question);
    return hash.result().toHex();
}

QString ResultCache::entryPath(const QByteArray& key) const {
    return root + QLatin1Char('/') + QString::fromLatin1(key.left(SHARD_LENGTH)) +
           QLatin1Char('/') + QString::fromLatin1(key.mid(SHARD_LENGTH));
}

bool ResultCache::find(const QByteArray& key, QByteArray& output) const {
    if (!usable || key.size() != KEY_LENGTH)
        return false;
    QByteArray entry;
    const std::string path = rootPath + '/' + key.left(SHARD_LENGTH).toStdString() + '/' +
                             key.mid(SHARD_LENGTH).toStdString();
    return readWhole(path.c_str(), entry) && outputOfEntry(entry, key, output);
}

bool ResultCache::store(const QByteArray& key, const QByteArray& output) {
    if (!storing || key.size() != KEY_LENGTH)
        return false;
    const std::string shard = rootPath + '/' + key.left(SHARD_LENGTH).toStdString();
    const bool stored = writeEntry(shard, shard + '/' + key.mid(SHARD_LENGTH).toStdString(),
                                   cacheEntryBytes(key, output));
    storedCount += stored;
    return stored;
}

ResultCache::~ResultCache() {
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        quitting = true;
    }
    queueChanged.notify_all();
    if (writer.joinable())
        writer.join();
}

void ResultCache::storeBehind(const QByteArray& key, const QByteArray& output) {
    if (!storing)
        return;
    std::unique_lock<std::mutex> lock(queueMutex);
    if (!writer.joinable())
        writer = std::thread([this] { writeQueued(); });
    // A disk slower than the jobs must not make the queue take the memory of a whole run.
    queueChanged.wait(lock, [this] { return queue.size() < MAX_QUEUED; });
    queue.emplace_back(key, output);
    queueChanged.notify_all();
}

void ResultCache::writeQueued() {
    std::unique_lock<std::mutex> lock(queueMutex);
    for (;;) {
        queueChanged.wait(lock, [this] { return quitting || !queue.empty(); });
        if (queue.empty())
            return; // quitting with nothing left
        const std::pair<QByteArray, QByteArray> entry = std::move(queue.front());
        queue.pop_front();
        writing = true;
        lock.unlock();
        queueChanged.notify_all();
        store(entry.first, entry.second);
        lock.lock();
        writing = false;
        queueChanged.notify_all();
    }
}

uint64_t ResultCache::flush() {
    std::unique_lock<std::mutex> lock(queueMutex);
    queueChanged.wait(lock, [this] { return queue.empty() && !writing; });
    return storedCount;
}

bool ResultCache::writeEntry(const std::string& shard, const std::string& path,
                             const QByteArray& bytes) {
    // Unique among processes (the pid) and threads (the count); a dot keeps it apart from
    // every entry name.
    const std::string temporary = shard + "/.tmp-" + std::to_string(::getpid()) + '-' +
                                  std::to_string(temporaryCount.fetch_add(1));
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 && errno == ENOENT && (::mkdir(shard.c_str(), 0755) == 0 || errno == EEXIST))
        fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        refuseStoring(errno);
        return false;
    }
    const bool written = writeWhole(fd, bytes);
    const int writeError = errno;
    if (::close(fd) != 0 || !written) {
        ::unlink(temporary.c_str());
        refuseStoring(written ? errno : writeError);
        return false;
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int renameError = errno;
        ::unlink(temporary.c_str());
        refuseStoring(renameError);
        return false;
    }
    return true;
}

void ResultCache::refuseStoring(int error) {
    storing = false;
    if (refusalSaid.exchange(true))
        return;
    std::cerr << "povrun: cannot store results in the cache folder " << rootPath << ": "
              << std::system_category().message(error) << "; the run goes on without storing"
              << std::endl;
}

} // namespace director
