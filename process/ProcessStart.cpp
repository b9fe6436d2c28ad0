#include "oxu/StartProcess.h"

#include <utility>

#include "os/os_print.h"
#include "os/os_thread.h"

namespace oxu {

std::string* StartProcess::m_su_passwd = nullptr;

StartProcess::StartProcess()
    : m_running(false), m_output_thread(0), m_buffer_size(0), m_pid(-1), m_pipe_write(-1), m_pipe_read(-1) {}

// Delegates, so that the destructor cleans up where a step below throws.
StartProcess::StartProcess(const std::string& workDir, const std::string& envNames, const std::string& command,
                           const std::string& password, std::function<void(const std::string&)> outputCallback,
                           unsigned long bufferSize, bool needRoot, bool blockingOutput)
    : StartProcess() {
  m_running = true;
  m_buffer_size = bufferSize;
  m_output_callback = std::move(outputCallback);
  m_blocking_output = blockingOutput;
  if (m_su_passwd == nullptr) m_su_passwd = new std::string;
  *m_su_passwd = password;
  if (initializePipe() != 0) {
    os_print(stdout, "prepatePipe failed\n");
    m_running = false;
    return;
  }
  m_capture_ended = false;
  if (!os_thread_create(&m_output_thread, outputThreadFunc, this, 0, 0)) m_capture_ended = true;
  if (addProcess(workDir, envNames, command, password, needRoot) <= 0) m_running = false;
}

StartProcess::~StartProcess() {
  const os_thread_cancel_guard uncancelled;
  m_running = false;
  stopReadPipe();
  if (m_output_thread != 0) {
    os_thread_join(m_output_thread, nullptr);
    m_output_thread = 0;
  }
  closePipe();
}

}  // namespace oxu
