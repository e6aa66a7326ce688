// Handing LLVM's last words over.
#include "il/fatal_errors.h"

#include <llvm/Support/ErrorHandling.h>

#include <new>

#include "runtime/program.h"

namespace vesk::compiler {
namespace {

void (*gHandler)(const char* reason) = nullptr;

}  // namespace

void setFatalErrorHandler(void (*handler)(const char* reason), const char* commandName) {
    gHandler = handler;
    runtime::setCommandName(commandName);
    llvm::remove_fatal_error_handler();
    llvm::install_fatal_error_handler([](void*, const char* reason, bool) { gHandler(reason); });
    llvm::remove_bad_alloc_error_handler();
    llvm::install_bad_alloc_error_handler([](void*, const char*, bool) {
        if (const std::new_handler outOfMemory = std::get_new_handler()) outOfMemory();
        throw std::bad_alloc();
    });
}

}  // namespace vesk::compiler
