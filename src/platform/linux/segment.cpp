// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/segment.h"

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace aiplc::platform {

namespace {

constexpr int kOwnerOnly = 0600;
constexpr unsigned kOthers = 0077;

void *AttachAt(int number, const void *address, int flags) {
    void *data = shmat(number, address, flags);
    return data == MAP_FAILED ? nullptr : data;  // the same value, -1
}

// An attachment for the length of a scope: the number stays with this segment meanwhile.
class Hold {
  public:
    explicit Hold(int number) : m_data(AttachAt(number, nullptr, 0)) {}
    ~Hold() { Segment::Detach(m_data); }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;
    bool IsHeld() const { return m_data != nullptr; }

  private:
    void *m_data;
};

}  // namespace

size_t PageBytes() {
    static const auto bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return bytes;
}

Segment::~Segment() {
    if (m_data == nullptr) return;
    munmap(End(), PageBytes());
    Detach(m_data);
}

int Segment::Create(size_t bytes) {
    const int number = shmget(IPC_PRIVATE, bytes, IPC_CREAT | kOwnerOnly);
    if (number < 0) return errno;
    const int error = Attach(number);
    shmctl(number, IPC_RMID, nullptr);
    if (error == 0) std::memset(m_data, 0, bytes);
    return error;
}

int Segment::Open(int32_t number) {
    const int error = Attach(number);
    return error == EIDRM || error == EACCES ? EINVAL : error;
}

int Segment::Attach(int number) {
    const Hold hold(number);
    if (!hold.IsHeld()) return errno;
    shmid_ds status{};
    if (shmctl(number, IPC_STAT, &status) != 0) return errno;
    if (status.shm_perm.uid != geteuid() || status.shm_perm.cuid != geteuid() ||
        (status.shm_perm.mode & kOthers) != 0) {
        return EINVAL;
    }
    const size_t page = PageBytes();
    const size_t mapped = (status.shm_segsz + page - 1) / page * page;
    void *room =
        mmap(nullptr, mapped + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) return errno;
    m_data = AttachAt(number, room, SHM_REMAP);
    if (m_data == nullptr) {
        const int error = errno;
        munmap(room, mapped + page);
        return error;
    }
    m_number = number;
    m_bytes = status.shm_segsz;
    m_mappedBytes = mapped;
    return 0;
}

void *Segment::AttachAgain() const {
    return AttachAt(m_number, nullptr, 0);
}

void Segment::Detach(void *data) {
    const int error = errno;
    if (data != nullptr) shmdt(data);
    errno = error;
}

}  // namespace aiplc::platform
