#pragma once

namespace varo::detail {

/// What carries an operation out, as its handle sees it. Thread-safe; none of the functions waits,
/// and each may be called in any state, at its end too, where it does nothing.
class Control {
 public:
  Control() = default;
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;
  virtual ~Control() = default;

  virtual void cancel() = 0;
  virtual void pause() = 0;
  virtual void resume() = 0;
};

}  // namespace varo::detail
