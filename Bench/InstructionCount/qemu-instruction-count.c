/* A qemu user-mode plugin that counts the guest instructions executed between two marker system calls
 * of the instruction-count driver, for the architectures callgrind does not run on under emulation.
 * Debian ships qemu with plugin support but without the plugin header, so the few entry points used
 * are declared here (plugin API version 1, qemu 7.2). Prints "counted N" when the program exits. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_info_t;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
typedef void (*qemu_plugin_vcpu_syscall_cb_t)(qemu_plugin_id_t, unsigned int, int64_t, uint64_t, uint64_t, uint64_t,
                                              uint64_t, uint64_t, uint64_t, uint64_t, uint64_t);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, void (*)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb*, enum qemu_plugin_op, void*, uint64_t);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb*);
void qemu_plugin_register_vcpu_syscall_cb(qemu_plugin_id_t, qemu_plugin_vcpu_syscall_cb_t);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, void (*)(qemu_plugin_id_t, void*), void*);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

/* The driver's marker: any system call whose first two arguments are these (see InstructionCountDriver). */
#define MARKER_1 0x56454c4du
#define MARKER_2 0x434f554eu

static uint64_t executed; /* every instruction, added per translation block as it starts */
static uint64_t counted;
static uint64_t since;
static int counting;

static void OnTranslated(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &executed,
                                             qemu_plugin_tb_n_insns(block));
}

static void OnSystemCall(qemu_plugin_id_t id, unsigned int cpu, int64_t number, uint64_t first, uint64_t second,
                         uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8) {
    (void)id, (void)cpu, (void)number, (void)a3, (void)a4, (void)a5, (void)a6, (void)a7, (void)a8;
    if (first != MARKER_1 || second != MARKER_2) {
        return;
    }
    if (counting) {
        counted += executed - since;
    } else {
        since = executed;
    }
    counting = !counting;
}

static void OnExit(qemu_plugin_id_t id, void* unused) {
    (void)id, (void)unused;
    fprintf(stderr, "counted %llu\n", (unsigned long long)counted);
}

__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id, const struct qemu_info_t* info,
                                                               int argc, char** argv) {
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslated);
    qemu_plugin_register_vcpu_syscall_cb(id, OnSystemCall);
    qemu_plugin_register_atexit_cb(id, OnExit, NULL);
    return 0;
}
