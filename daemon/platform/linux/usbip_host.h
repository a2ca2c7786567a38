// Sharing through the Linux kernel's usbip-host driver, steered through the
// USB bus's sysfs folder (the parent of the `devices/` folder that the
// device backend reads):
//   hand over: "add BUSID" to drivers/usbip-host/match_busid; BUSID to the
//     current driver's `unbind` (when bound) and to drivers/usbip-host/bind;
//     the socket's descriptor number and "\n" to devices/BUSID/usbip_sockfd
//     (the kernel takes its own reference to the socket);
//   in use: devices/BUSID/usbip_status reads 2 (1 available, 3 error);
//   end: "-1" to usbip_sockfd while in use, then a wait until usbip_status
//     leaves 2 (giving the device back before that oopses the kernel); then
//     the device goes back: BUSID to drivers/usbip-host/unbind, "del BUSID"
//     to match_busid, BUSID to drivers/usbip-host/rebind, which binds its
//     own driver again and frees the busid's slot in usbip-host's table (16
//     slots; "del" alone keeps the slot of a device that was bound). The
//     bus's drivers_probe only stands in when rebind fails.
// rebind reaches for the device that usbip-host last took on the port, so it
// is written only while usbip-host holds the device that is there now; a
// device elsewhere is bound to usbip-host first. The slot of a device that
// went away while usbip-host held it cannot be freed until a device comes on
// that port: it is remembered, and freed then.
// At start-up, a device bound to usbip-host is a leftover, and so is a busid
// in the match table: given back, or remembered while no device is there.
// The hand-over and everything after it run on a worker thread, one step
// after the other, so that neither the wait nor a slow driver (usb-storage
// takes its time to let a disk go) holds the loop.
#pragma once

#include "daemon/core/share_hand_off.h"
#include "daemon/platform/off_loop_worker.h"

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string_view>
#include <vector>

namespace halvo::daemon {

class UsbipHost final : public ShareHandOff {
  public:
    // Writes one attribute; the reason on failure.
    using Writer =
        std::function<util::Expected<void>(const std::filesystem::path&, std::string_view)>;

    // How long the end of a share waits for usbip-host to let go of the
    // device before it gives up and leaves the device with usbip-host.
    static constexpr std::chrono::seconds kReleaseBound{10};

    // `loop` hears the outcomes; `devicesRoot` is the bus's devices folder
    // (/sys/bus/usb/devices); `writer` defaults to writing the files (it is
    // called on the worker thread).
    UsbipHost(boost::asio::io_context& loop, const std::filesystem::path& devicesRoot,
              Writer writer = {});
    // Finishes the give-backs under way and queued first.
    ~UsbipHost() override;
    UsbipHost(const UsbipHost&) = delete;
    UsbipHost& operator=(const UsbipHost&) = delete;

    void handOver(const Device& device, int socketFd, Done done) override;
    ShareUse use(const Device& device) override;
    void end(const Device& device, Done ended) override;
    bool busy(std::string_view port) const override { return pending_.contains(port); }
    void whenIdle(std::function<void()> idle) override;
    void portChanged(const std::string& port) override;
    Recovery recoverLeftovers() override;

  private:
    // What a job on the worker did for one port.
    struct Outcome {
        util::Expected<void> result;
        // Its device went away and its slot stays in usbip-host's table.
        bool slotLeft = false;
        // A slot that a device which went away had left was freed.
        bool slotFreed = false;
    };

    // Runs `job` for `port` on the worker; `done` (if any) hears the outcome
    // on the loop.
    void runFor(const std::string& port, std::function<Outcome()> job,
                std::function<void(const Outcome&)> done);

    // On the worker:
    // Gives usbip-host the device on `port` and the socket `socketFd`.
    util::Expected<void> take(const std::string& port, int socketFd) const;
    // Stops the device's traffic, waits for usbip-host to let go, frees.
    Outcome release(const std::string& port) const;
    // Gives the device on `port` back to its own driver and frees its slot;
    // nothing to do when no device is there.
    util::Expected<void> free(const std::string& port) const;
    // The busids in usbip-host's match table.
    std::set<std::string> matchTable() const;
    // Whether usbip-host's match table lists `port`.
    bool listed(const std::string& port) const;
    Outcome slotState(const std::string& port, util::Expected<void> result) const;

    std::filesystem::path devices_;
    std::filesystem::path bus_;
    std::filesystem::path driver_;
    Writer write_;
    // On the loop: the jobs queued or running per port, the ports whose
    // slot a device that went away left in the table, and the ports being
    // handed over.
    std::map<std::string, int, std::less<>> pending_;
    std::set<std::string> slotsLeft_;
    std::set<std::string> handingOver_;
    std::vector<std::function<void()>> idleWaiters_;
    // Last, so that it finishes before the rest goes.
    OffLoopWorker worker_;
};

} // namespace halvo::daemon
