// The console interrupt, the fault scope and helper threads on Windows.
//
// Interrupt: the system calls the console handler on a thread of its own for
// every console event, whatever its kind. The first event runs the program's
// action and is handled; every later one is left to the system's default
// handler, which ends the process at once.
//
// Fault scope: the work runs on a thread of its own with a large stack. A
// vectored handler sees a fault on that thread before anything else does,
// also a stack overflow, notes its code and address and ends the thread; the
// caller, waiting for the thread, then finds the fault noted.
#include <cstdlib>

#include "platform/system.h"
#include "platform/win32.h"
#include "run/report.h"

namespace {

void (*break_action)(int);
volatile LONG break_seen;
char16_t *break_text;

BOOL WINAPI console_handler(DWORD) {
    if (InterlockedExchange(&break_seen, 1) != 0) return FALSE;
    if (break_action) break_action(2); // the interrupt's number on every platform
    return TRUE;
}

// Deep dependency chains and deep macro references recurse; a stack of this
// size (address space only, until it is touched) lets them go very deep.
constexpr SIZE_T WORK_STACK_BYTES = SIZE_T(1) << 30;
// What the handler has left to run on when the stack has overflowed.
constexpr ULONG STACK_GUARANTEE_BYTES = 64 * 1024;

struct scope_call {
    void (*body)(void *);
    void *arg;
    DWORD thread_id;
    bool returned;
    fault_record caught;
};

scope_call *active_call;

// What a deep recursion must leave of the stack: room for the diagnostic and
// the release of the run's tables, for the deepest step between two tests, and
// the pages that the system keeps at the end of the stack.
constexpr uintptr_t STACK_MARGIN = 256 * 1024 + STACK_GUARANTEE_BYTES;
thread_local uintptr_t stack_guard; // lowest address a recursion may reach; 0: unknown

// The lowest address of the calling thread's stack, reserved or not.
uintptr_t find_stack_low() {
    MEMORY_BASIC_INFORMATION region;
    if (!VirtualQuery(__builtin_frame_address(0), &region, sizeof region)) return 0;
    return reinterpret_cast<uintptr_t>(region.AllocationBase);
}

// Processor faults and the other errors the system raises; informational
// exceptions, breakpoints and the like go on to whoever expects them.
bool is_fault(DWORD code) {
    return (code & 0xC0000000) == 0xC0000000 || code == EXCEPTION_GUARD_PAGE ||
           code == EXCEPTION_DATATYPE_MISALIGNMENT;
}

LONG CALLBACK fault_filter(EXCEPTION_POINTERS *info) {
    scope_call *call = active_call;
    const EXCEPTION_RECORD *record = info->ExceptionRecord;
    if (!call || GetCurrentThreadId() != call->thread_id || !is_fault(record->ExceptionCode))
        return EXCEPTION_CONTINUE_SEARCH;
    call->caught.code = record->ExceptionCode;
    call->caught.address = reinterpret_cast<uintptr_t>(record->ExceptionAddress);
    ExitThread(1); // nothing of the work is unwound: the run ends with the diagnostic
}

// Runs the body with the stack guard set for the calling thread.
void run_guarded(scope_call *call) {
    const uintptr_t outer_guard = stack_guard;
    if (const uintptr_t low = find_stack_low()) stack_guard = low + STACK_MARGIN;
    call->body(call->arg);
    stack_guard = outer_guard;
}

DWORD WINAPI run_scope_thread(void *p) {
    scope_call *call = static_cast<scope_call *>(p);
    ULONG guarantee = STACK_GUARANTEE_BYTES;
    SetThreadStackGuarantee(&guarantee);
    run_guarded(call);
    call->returned = true;
    return 0;
}

} // namespace

bool is_stack_nearly_used() {
    return reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) < stack_guard;
}

bool install_break_handler(void (*handler)(int signal)) {
    break_action = handler;
    return SetConsoleCtrlHandler(console_handler, TRUE) != 0;
}

void set_break_text(const char16_t *text) {
    free(break_text);
    break_text = str_dup(text);
}

void write_break_text() {
    write_text(STREAM_ERR, break_text, 0);
}

bool run_on_work_thread(void (*body)(void *), void *arg, fault_record *fault, bool catch_faults) {
    scope_call call = {body, arg, 0, false, {0, 0}};
    scope_call *outer = active_call;
    active_call = &call;
    void *handler = catch_faults ? AddVectoredExceptionHandler(1, fault_filter) : nullptr;
    HANDLE worker =
        CreateThread(nullptr, WORK_STACK_BYTES, run_scope_thread, &call,
                     STACK_SIZE_PARAM_IS_A_RESERVATION | CREATE_SUSPENDED, &call.thread_id);
    if (worker) {
        ResumeThread(worker);
        WaitForSingleObject(worker, INFINITE);
        CloseHandle(worker);
    } else {
        // Without a thread of its own, the work runs here, on the stack it has.
        call.thread_id = GetCurrentThreadId();
        run_guarded(&call);
        call.returned = true;
    }
    if (handler) RemoveVectoredExceptionHandler(handler);
    active_call = outer;
    if (!call.returned && fault) *fault = call.caught;
    return call.returned;
}

namespace {

struct helper_thread {
    HANDLE handle;
    void (*work)(void *);
    void *arg;
};

DWORD WINAPI run_helper(void *p) {
    helper_thread *helper = static_cast<helper_thread *>(p);
    helper->work(helper->arg);
    return 0;
}

} // namespace

void *start_helper(void (*work)(void *), void *arg) {
    helper_thread *helper = static_cast<helper_thread *>(malloc(sizeof(helper_thread)));
    if (!helper) return nullptr;
    helper->work = work;
    helper->arg = arg;
    helper->handle = CreateThread(nullptr, 0, run_helper, helper, 0, nullptr);
    if (helper->handle) return helper;
    free(helper);
    return nullptr;
}

void join_helper(void *p) {
    helper_thread *helper = static_cast<helper_thread *>(p);
    WaitForSingleObject(helper->handle, INFINITE);
    CloseHandle(helper->handle);
    free(helper);
}
