package kestrin.profile;

import java.util.ArrayDeque;
import java.util.Queue;
import java.util.concurrent.Executor;
import java.util.concurrent.RejectedExecutionException;

/** Runs what it gets one after the other, wherever another executor runs it. */
final class SerialExecutor implements Executor {
    private final Executor executor;
    private final Queue<Runnable> waiting = new ArrayDeque<>();
    private boolean running;

    SerialExecutor(Executor executor) {
        this.executor = executor;
    }

    @Override
    public void execute(Runnable task) {
        synchronized (this) {
            waiting.add(task);
            if (running) return;
            running = true;
        }
        try {
            executor.execute(this::runAll);
        } catch (Throwable problem) {
            // If it was shut down, so is whoever wanted to be told.
            if (!(problem instanceof RejectedExecutionException)) Events.report(problem);
            synchronized (this) {
                running = false;
                waiting.clear();
            }
        }
    }

    private void runAll() {
        for (Runnable task = next(); task != null; task = next()) {
            try {
                task.run();
            } catch (Throwable problem) {
                Events.report(problem);
            }
        }
    }

    private synchronized Runnable next() {
        Runnable task = waiting.poll();
        running = task != null;
        return task;
    }
}
