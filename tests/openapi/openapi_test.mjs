// What the development service says of itself, read by a validator that others have written.
// usage: openapi_test.mjs SERVER
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { createInterface } from "node:readline";

const skipped = 77;

async function validator() {
    try {
        return (await import("@seriousme/openapi-schema-validator")).Validator;
    } catch (error) {
        console.log(`skipped: ./dev test installs the validator with npm (${error.message})`);
        process.exit(skipped);
    }
}

/** Starts the service, calls `work` with its address, and stops it. */
async function withService(server, options, work) {
    const service = spawn(server, ["--demo", "--quiet", "--port", "0", "--write-config", "config.json", ...options], {
        stdio: ["ignore", "pipe", "inherit"],
    });
    try {
        for await (const line of createInterface({ input: service.stdout })) {
            const ready = line.match(/ ready on (\S+)$/);
            if (ready) return await work(ready[1]);
        }
        assert.fail("the service did not start");
    } finally {
        service.kill();
    }
}

async function documentAt(url) {
    const reply = await fetch(`${url}/openapi.json`);
    assert.equal(reply.status, 200, url);
    return reply.json();
}

const Validator = await validator();

async function errorsOf(document) {
    const result = await new Validator().validate(document);
    return result.valid ? [] : result.errors;
}

await withService(process.argv[2], [], async (url) => {
    const made = await fetch(`${url}/admin/v1/namespaces`, {
        method: "POST",
        headers: { "Content-Type": "application/json" },
        body: JSON.stringify({ name: "one" }),
    });
    assert.equal(made.status, 201);
    for (const base of [url, `${url}/n/one`]) {
        const document = await documentAt(base);
        assert.equal(document.openapi.slice(0, 3), "3.1");
        assert.deepEqual(await errorsOf(document), [], base);
        for (const path of ["/v1/history", "/admin/v1/status"]) assert.ok(document.paths[path], path);
        delete document.info.title;
        assert.notDeepEqual(await errorsOf(document), [], "the validator sees what is missing");
    }
});
