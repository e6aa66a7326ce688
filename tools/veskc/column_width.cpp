// How wide a character is on a screen, as LLVM's printer asks for every byte of IL that it writes.
// The linker leads LLVM's question here (--wrap); printable ASCII, which is nearly all of IL, is answered at once, the
// rest by LLVM. Half of the time of printing went into that question.
#include <cstddef>

namespace vesk::compiler {

// Passed as LLVM passes its references to text.
struct PrintedText {
    const char* data;
    std::size_t size;
};

int columnsByLLVM(PrintedText text) asm("__real__ZN4llvm3sys7unicode15columnWidthUTF8ENS_9StringRefE");
int columnsOf(PrintedText text) asm("__wrap__ZN4llvm3sys7unicode15columnWidthUTF8ENS_9StringRefE");

int columnsOf(PrintedText text) {
    constexpr unsigned char FIRST_PRINTABLE = 0x20, LAST_PRINTABLE = 0x7E;
    if (text.size == 1) {
        const auto character = static_cast<unsigned char>(text.data[0]);
        if (character >= FIRST_PRINTABLE && character <= LAST_PRINTABLE) return 1;
    }
    return columnsByLLVM(text);
}

}  // namespace vesk::compiler
