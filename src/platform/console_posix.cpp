// The console interrupt and the fault scope on POSIX, both built on signals.
//
// Interrupt: SIGINT and SIGHUP (a closed terminal counts as an interrupt) share
// one handler, which puts both back to their default action before it calls
// the program's, so a second signal ends the process. Only write(2) runs in it.
//
// Fault scope: while the body runs, SIGSEGV, SIGBUS, SIGFPE and SIGILL go to a
// handler on an alternate stack, which records the fault and jumps back to the
// scope with siglongjmp. The signal numbers become the Windows exception codes
// that the fault texts are written against.
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <unistd.h>

#include "platform/posix.h"
#include "platform/system.h"
#include "run/report.h"

namespace {

void (*break_handler)(int);
char break_text[1024]; // UTF-8, ready for write(2) in the handler
size_t break_length;

void on_break_signal(int) {
    struct sigaction fallback;
    memset(&fallback, 0, sizeof fallback);
    fallback.sa_handler = SIG_DFL;
    sigaction(SIGINT, &fallback, nullptr);
    sigaction(SIGHUP, &fallback, nullptr);
    if (break_handler) break_handler(2); // the interrupt's number on every platform
}

// Windows exception codes of the faults that the scope tells apart.
constexpr uint32_t FAULT_ACCESS_VIOLATION = 0xC0000005;
constexpr uint32_t FAULT_MISALIGNMENT = 0x80000002;
constexpr uint32_t FAULT_IN_PAGE = 0xC0000006;
constexpr uint32_t FAULT_FLOAT_INVALID = 0xC0000090;
constexpr uint32_t FAULT_INT_DIVIDE = 0xC0000094;
constexpr uint32_t FAULT_INT_OVERFLOW = 0xC0000095;
constexpr uint32_t FAULT_ILLEGAL_INSTRUCTION = 0xC000001D;
constexpr uint32_t FAULT_STACK_OVERFLOW = 0xC00000FD;

const int fault_signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr size_t FAULT_SIGNAL_COUNT = sizeof fault_signals / sizeof fault_signals[0];

// Room for the handler even when the fault is a stack overflow.
constexpr size_t ALT_STACK_BYTES = 256 * 1024;
// A fault this close to the low end of the stack, or below it, is the stack
// running out: guard pages sit below the end and a big frame can skip them.
constexpr uintptr_t STACK_SLACK_ABOVE = 64 * 1024;
constexpr uintptr_t STACK_SLACK_BELOW = 1024 * 1024;

struct fault_scope {
    sigjmp_buf jump;
    uintptr_t stack_low; // 0 when the bounds are unknown
    fault_record caught;
};

thread_local fault_scope *active_scope;

// What a deep recursion must leave of the stack: room for the diagnostic and
// the release of the run's tables, and for the deepest step between two tests.
constexpr uintptr_t STACK_MARGIN = 256 * 1024;
thread_local uintptr_t stack_guard; // lowest address a recursion may reach; 0: unknown

uint32_t map_fault_code(int signal, const siginfo_t *info) {
    uintptr_t address = reinterpret_cast<uintptr_t>(info->si_addr);
    uintptr_t low = active_scope->stack_low;
    switch (signal) {
    case SIGSEGV:
        if (low && address < low + STACK_SLACK_ABOVE && address + STACK_SLACK_BELOW >= low)
            return FAULT_STACK_OVERFLOW;
        return FAULT_ACCESS_VIOLATION;
    case SIGBUS:
        return info->si_code == BUS_ADRALN ? FAULT_MISALIGNMENT : FAULT_IN_PAGE;
    case SIGFPE:
        if (info->si_code == FPE_INTDIV) return FAULT_INT_DIVIDE;
        if (info->si_code == FPE_INTOVF) return FAULT_INT_OVERFLOW;
        return FAULT_FLOAT_INVALID;
    default:
        return FAULT_ILLEGAL_INSTRUCTION;
    }
}

void fault_filter(int signal, siginfo_t *info, void *) {
    active_scope->caught.code = map_fault_code(signal, info);
    active_scope->caught.address = reinterpret_cast<uintptr_t>(info->si_addr);
    siglongjmp(active_scope->jump, 1);
}

uintptr_t find_stack_low() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
    void *low = nullptr;
    size_t size = 0;
    if (pthread_attr_getstack(&attributes, &low, &size) != 0) low = nullptr;
    pthread_attr_destroy(&attributes);
    return reinterpret_cast<uintptr_t>(low);
}

} // namespace

bool is_stack_nearly_used() {
    return reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) < stack_guard;
}

bool install_break_handler(void (*handler)(int signal)) {
    break_handler = handler;
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_break_signal;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGHUP);
    return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGHUP, &action, nullptr) == 0;
}

void set_break_text(const char16_t *text) {
    size_t length = 0;
    char *bytes = encode_text(text, &length);
    if (length > sizeof break_text) {
        // Cut at a character boundary: never in front of a continuation byte.
        length = sizeof break_text;
        while (length && (static_cast<unsigned char>(bytes[length]) & 0xC0) == 0x80)
            --length;
    }
    memcpy(break_text, bytes, length);
    break_length = length;
    free(bytes);
}

void write_break_text() {
    const char *p = break_text;
    size_t left = break_length;
    while (left) {
        ssize_t n = write(2, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        p += n;
        left -= static_cast<size_t>(n);
    }
}

namespace {

// Runs body with the stack guard of the calling thread and, with catch_faults,
// in a fault scope.
bool run_scope_here(void (*body)(void *), void *arg, fault_record *fault, bool catch_faults) {
    const uintptr_t stack_low = find_stack_low();
    const uintptr_t outer_guard = stack_guard;
    if (stack_low) stack_guard = stack_low + STACK_MARGIN;
    if (!catch_faults) {
        body(arg);
        stack_guard = outer_guard;
        return true;
    }
    // Everything the jump back needs is set up before sigsetjmp and not changed
    // behind it, except returned, which is volatile for that reason.
    fault_scope scope;
    memset(&scope.caught, 0, sizeof scope.caught);
    scope.stack_low = stack_low;
    fault_scope *outer = active_scope;
    active_scope = &scope;

    stack_t alternate, previous_stack;
    memset(&alternate, 0, sizeof alternate);
    alternate.ss_sp = xmalloc(ALT_STACK_BYTES);
    alternate.ss_size = ALT_STACK_BYTES;
    bool own_stack = sigaltstack(&alternate, &previous_stack) == 0;

    struct sigaction action, previous[FAULT_SIGNAL_COUNT];
    memset(&action, 0, sizeof action);
    action.sa_sigaction = fault_filter;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < FAULT_SIGNAL_COUNT; ++i)
        sigaction(fault_signals[i], &action, &previous[i]);

    volatile bool returned = false;
    if (sigsetjmp(scope.jump, 1) == 0) {
        body(arg);
        returned = true;
    }

    // Back to the actions from before the scope, so a second fault is not caught.
    for (size_t i = 0; i < FAULT_SIGNAL_COUNT; ++i)
        sigaction(fault_signals[i], &previous[i], nullptr);
    if (own_stack) sigaltstack(&previous_stack, nullptr);
    free(alternate.ss_sp);
    active_scope = outer;
    stack_guard = outer_guard;
    if (!returned && fault) *fault = scope.caught;
    return returned;
}

// The work runs on a thread of its own with a large stack: deep dependency
// chains and deep macro references recurse, and a stack of this size (address
// space only, until it is touched) lets them go very deep before the scope
// turns the end of the stack into a diagnostic.
constexpr size_t WORK_STACK_BYTES = size_t(1) << 30;

struct scope_call {
    void (*body)(void *);
    void *arg;
    fault_record *fault;
    bool catch_faults;
    bool returned;
};

void *run_scope_thread(void *p) {
    scope_call *call = static_cast<scope_call *>(p);
    call->returned = run_scope_here(call->body, call->arg, call->fault, call->catch_faults);
    return nullptr;
}

} // namespace

bool run_on_work_thread(void (*body)(void *), void *arg, fault_record *fault, bool catch_faults) {
    scope_call call = {body, arg, fault, catch_faults, false};
    pthread_attr_t attributes;
    pthread_t worker;
    bool started = pthread_attr_init(&attributes) == 0;
    if (started) {
        started = pthread_attr_setstacksize(&attributes, WORK_STACK_BYTES) == 0 &&
                  pthread_create(&worker, &attributes, run_scope_thread, &call) == 0;
        pthread_attr_destroy(&attributes);
    }
    // Without a thread of its own (the address space may be limited), the work
    // runs here, on the stack it has.
    if (!started) return run_scope_here(body, arg, fault, catch_faults);
    // Console interrupts go to the worker from here on, so that the flag is set
    // by the time the wait for a child that was interrupted with it returns.
    sigset_t interrupts;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &interrupts, nullptr);
    pthread_join(worker, nullptr);
    return call.returned;
}

namespace {

struct helper_thread {
    pthread_t thread;
    void (*work)(void *);
    void *arg;
};

void *run_helper(void *p) {
    helper_thread *helper = static_cast<helper_thread *>(p);
    helper->work(helper->arg);
    return nullptr;
}

} // namespace

void *start_helper(void (*work)(void *), void *arg) {
    helper_thread *helper = static_cast<helper_thread *>(malloc(sizeof(helper_thread)));
    if (!helper) return nullptr;
    helper->work = work;
    helper->arg = arg;
    // The new thread inherits the mask: with the interrupts blocked in it, they
    // keep going to the thread that does the work. Faults stay deliverable.
    sigset_t blocked;
    sigset_t previous;
    sigfillset(&blocked);
    static constexpr int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
    for (int fault : faults)
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    const bool started = pthread_create(&helper->thread, nullptr, run_helper, helper) == 0;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (started) return helper;
    free(helper);
    return nullptr;
}

void join_helper(void *p) {
    helper_thread *helper = static_cast<helper_thread *>(p);
    pthread_join(helper->thread, nullptr);
    free(helper);
}
