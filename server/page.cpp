// SPDX-License-Identifier: MIT
#include "server/page.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include "server/broken_runs.hpp"

namespace hostadm::server {

void tell_changed(method::Call &call, bool changed) {
    call.set(changed_output.name, changed ? "yes" : "no");
}

int guarded(method::Call &call, const std::function<int()> &work) try {
    return work();
} catch (const Recorded &) {
    return 1;
} catch (const Refusal &refusal) {
    return call.refuse(refusal.what());
} catch (const Failure &failure) {
    return call.fail(failure.what(), static_cast<int>(failure.code()));
} catch (const std::exception &failure) {
    return call.fail(failure.what());
}

int run_page(int argc, char **argv, const method::Description &description,
             const std::function<int(method::Call &)> &work) {
    umask(022);
    return method::run(argc, argv, description, [&](method::Call &call) {
        return guarded(call, [&] {
            if (!description.edits.empty() && geteuid() == 0)
                take_back_broken_runs(call);
            return work(call);
        });
    });
}

} // namespace hostadm::server
