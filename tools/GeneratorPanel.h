// tools/GeneratorPanel.h: the generator panel's state and actions, so that a Qt panel only draws it.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace quillon::tools {

class GeneratorPanel {
public:
    enum class Mode : std::uint8_t { random = 0, words = 1 }; // the segments "Random" and "Words"

    static constexpr std::string_view missingWordListNotice = "Word list missing: passphrases are unavailable.";

    // The word list is the shipped EFF list unless a test gives another (an empty one means missing).
    // Starts in Random mode with the count "20" and no output.
    explicit GeneratorPanel(std::span<const std::string> words);
    GeneratorPanel();

    Mode mode() const noexcept { return mode_; }
    const std::string& countText() const noexcept { return countText_; }
    void setCountText(std::string text) { countText_ = std::move(text); }
    const kdbx::SecureBytes& output() const noexcept { return output_; }
    // "20 characters · 129 bits", "5 words · 65 bits", or the missing-list notice.
    const std::string& strength() const noexcept { return strength_; }

    // Called with the output when the user takes it; set by the owner.
    std::function<void(std::string_view)> onUse;
    std::function<void()> onCancel;

    // Switching resets the count to "20" (Random) or "5" (Words), then regenerates.
    void modeChanged(Mode mode);
    // Reads the count (empty or unreadable gives 20), clamps it to 4..1024 characters or 3..64 words,
    // and makes a new value. The count text keeps what the user typed.
    void regenerate();
    // Hands the output to onUse; nothing happens when the output is empty.
    void useIt();
    void cancelIt();
    // As the panel is shown: Random mode, count "20", a fresh value.
    void reset();

private:
    std::span<const std::string> words_;
    Mode mode_ = Mode::random;
    std::string countText_ = "20";
    kdbx::SecureBytes output_;
    std::string strength_;
};

} // namespace quillon::tools
