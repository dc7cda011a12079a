// The crash harness's stand-in for an app: one library entry point per run,
// called directly on a file (no tool, no undo file).
//
//   lib_driver OP FILE [ARG...]
// OP names the entry point (see main): save and savefd take NAME, DATA (a
// file's bytes) and UPDATE; cover takes the file of the new media; copy and
// copyfd take SRC before FILE; read is checkTEVInFile, the next call an app
// makes; recover is skipped when the library lacks recoverTEVFile; crowd
// FILE THREADS PROCS N has THREADS threads in each of PROCS processes add N
// records each and prints the records lost.
// Exit status 0 when the entry point reported success.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tev/tev.hpp"

namespace {

std::vector<unsigned char> slurp(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

uint32_t len(const char* s) { return static_cast<uint32_t>(std::strlen(s)); }

int ok(uint32_t result) { return result != 0 ? 0 : 1; }

// The exit status of `call` on PATH opened as an app's descriptor.
template <typename Call>
int onFd(const char* path, Call call) {
    const int fd = open(path, O_RDWR);
    const int rc = ok(call(fd));
    close(fd);
    return rc;
}

// Adds COUNT records named "p<process>t<thread>r<i>".
void crowdAdd(const char* path, int process, int thread, int count) {
    const unsigned char data[64] = {1, 2, 3};
    for (int i = 0; i < count; ++i) {
        const std::string name = "p" + std::to_string(process) + "t" + std::to_string(thread) + "r" + std::to_string(i);
        saveTEVDataToFile(path, name.c_str(), len(name.c_str()), nullptr, 0, data, sizeof data, 1, 0);
    }
}

void crowdProcess(const char* path, int process, int threads, int count) {
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) pool.emplace_back([=] { crowdAdd(path, process, t, count); });
    for (auto& th : pool) th.join();
}

int crowd(const char* path, int threads, int procs, int count) {
    std::vector<pid_t> children;
    for (int p = 1; p < procs; ++p) {
        const pid_t pid = fork();
        if (pid == 0) {
            crowdProcess(path, p, threads, count);
            _exit(0);
        }
        children.push_back(pid);
    }
    crowdProcess(path, 0, threads, count);
    for (pid_t pid : children) waitpid(pid, nullptr, 0);
    const tev::Pack pack(checkTEVInFile(path));
    const int expected = threads * procs * count;
    const int found = pack ? static_cast<int>(pack->data_count) : 0;
    std::printf("%d records expected, %d found, %d lost\n", expected, found, expected - found);
    return found == expected ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::string op = argv[1];
    const char* file = argv[2];
    if (op == "save" || op == "savefd") {
        const std::vector<unsigned char> data = slurp(argv[4]);
        const uint32_t update = argc > 5 ? static_cast<uint32_t>(std::atoi(argv[5])) : 0;
        if (op == "save") {
            return ok(saveTEVDataToFile(file, argv[3], len(argv[3]), nullptr, 0, data.data(),
                                        static_cast<uint32_t>(data.size()), 1, update));
        }
        return onFd(file, [&](int fd) {
            return saveTEVDataToFd(fd, argv[3], len(argv[3]), nullptr, 0, data.data(),
                                   static_cast<uint32_t>(data.size()), 1, update);
        });
    }
    if (op == "delete") return ok(deleteTEVDataFromFile(file, argv[3], len(argv[3])));
    if (op == "cover") {
        const std::vector<unsigned char> media = slurp(argv[3]);
        return ok(FastChangeCoverData(file, media.data(), static_cast<uint32_t>(media.size())));
    }
    if (op == "deletefd") {
        return onFd(file, [&](int fd) {
            _TEV_info_pack* pack = checkTEVInFd(fd);
            const uint32_t result = pack != nullptr ? deleteTEVDataFromFilebyName(&pack, argv[3], len(argv[3])) : 0;
            if (pack != nullptr) destroyTEVDATA_FP(pack);
            return result;
        });
    }
    if (op == "deletemulti") {
        std::vector<const char*> names(argv + 3, argv + argc);
        std::vector<uint32_t> lengths;
        for (const char* n : names) lengths.push_back(len(n));
        return ok(deleteTEVMultiDataFromFilebyName(file, names.data(), lengths.data(),
                                                   static_cast<uint32_t>(names.size())));
    }
    if (op == "clear") return ok(deleteAllDataFromFile(file));
    if (op == "fastclear") return ok(deleteFastAllTEVData(file));
    if (op == "clearfd") return onFd(file, [](int fd) { return deleteAllDataFromFd(fd); });
    if (op == "sound") {
        std::vector<unsigned char> data = slurp(argv[4]);
        return ok(saveVoxaToImageFile(file, data.data(), static_cast<uint32_t>(data.size()), argv[3], len(argv[3])));
    }
    if (op == "sounddel") return ok(deleteVoxaFromImageFile(file, argv[3]));
    if (op == "soundclear") return ok(deleteAllVoxaFromImageFile(file));
    if (op == "copy") return ok(copyTEVData(argv[2], argv[3]));
    if (op == "copyfd") {
        const int src = open(argv[2], O_RDWR);
        const int rc = onFd(argv[3], [&](int dst) { return copyTEVDataFd(src, dst); });
        close(src);
        return rc;
    }
    if (op == "read") {
        const tev::Pack pack(checkTEVInFile(file));
        return 0;
    }
    if (op == "recover") {
        // Looked up at run time, so the driver also runs against a library
        // from before the journal (the harness's "before" table).
        using Recover = uint32_t (*)(const char*);
        auto recover = reinterpret_cast<Recover>(dlsym(RTLD_DEFAULT, "recoverTEVFile"));
        return recover != nullptr ? ok(recover(file)) : 0;
    }
    if (op == "crowd" && argc > 5) return crowd(file, std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]));
    return 2;
}
