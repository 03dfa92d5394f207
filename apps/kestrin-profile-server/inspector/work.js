// Work that many events ask for.

const pause = 200;

/** A function that runs `work` now or, if it is running, once more when that has ended; `later` on
 * it waits a moment first, so that many calls become one. Failures go to `report`. */
export function coalesced(work, report) {
    let running = null;
    let isWanted = false;
    let timer = 0;
    async function runAll() {
        do {
            isWanted = false;
            try {
                await work();
            } catch (failure) {
                report(failure);
            }
        } while (isWanted);
        running = null;
    }
    function run() {
        clearTimeout(timer);
        timer = 0;
        if (running) isWanted = true;
        else running = runAll();
        return running;
    }
    run.later = () => { timer ||= setTimeout(run, pause); };
    return run;
}

/** A function that does what the user asked for, says that it is done, or why not, and shows what is
 * there then. */
export function attempts({ report, done }, reload) {
    return async (work, words) => {
        try {
            await work();
            if (words) done(words);
            await reload();
        } catch (failure) {
            report(failure);
        }
    };
}
