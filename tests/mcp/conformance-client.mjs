// The conformance walk of Vesk's tool server with the official MCP client SDK over Streamable HTTP.
// Usage: node conformance-client.mjs <url> <token>. Prints one "ok <step> ..." line per step that
// passed and "done" at the end; any failure prints "fail <step>: <reason>" and exits with 1.
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StreamableHTTPClientTransport } from "@modelcontextprotocol/sdk/client/streamableHttp.js";

const [url, token] = process.argv.slice(2);
if (!url || !token) {
  console.log("fail usage: conformance-client.mjs <url> <token>");
  process.exit(2);
}

function check(step, condition, detail) {
  if (!condition) {
    console.log(`fail ${step}: ${detail}`);
    process.exit(1);
  }
  console.log(`ok ${step}${detail ? " " + detail : ""}`);
}

function connectWith(bearer) {
  const transport = new StreamableHTTPClientTransport(new URL(url), {
    requestInit: { headers: { Authorization: `Bearer ${bearer}` } },
  });
  const client = new Client({ name: "vesk-conformance", version: "1.0.0" });
  return { client, transport };
}

try {
  // A wrong token is refused before any session exists.
  {
    const { client, transport } = connectWith("0".repeat(64));
    let refused = "";
    try {
      await client.connect(transport);
    } catch (error) {
      refused = String(error?.message ?? error);
    }
    check("wrong-token", refused !== "", JSON.stringify(refused.slice(0, 120)));
    await client.close().catch(() => {});
  }

  const { client, transport } = connectWith(token);
  await client.connect(transport);
  check("initialize", transport.sessionId?.length === 32, `session=${transport.sessionId}`);
  const info = client.getServerVersion();
  check("server-info", info?.name === "vesk-conformance-server", `${info?.name} ${info?.version}`);
  check("instructions", client.getInstructions() === "Demo tools only.", "");

  const { tools } = await client.listTools();
  const names = tools.map((t) => t.name).join(",");
  check("list-tools", names === "echo,slow,image", names);
  check("tool-schema", tools[0].inputSchema?.properties?.text?.type === "string", tools[0].title ?? "");

  const echoed = await client.callTool({ name: "echo", arguments: { text: "héllo ✓" } });
  check("call-echo", echoed.content?.[0]?.type === "text" && echoed.content[0].text === "héllo ✓" && !echoed.isError, "");

  const named = await client.callTool({ name: "echo", arguments: { text: "client" } });
  check("client-name", named.content?.[0]?.text === "vesk-conformance", named.content?.[0]?.text);

  const failed = await client.callTool({ name: "echo", arguments: { text: "fail" } });
  check("call-error-result", failed.isError === true, failed.content?.[0]?.text);

  const picture = await client.callTool({ name: "image", arguments: {} });
  const image = picture.content?.find((c) => c.type === "image");
  const png = image ? Buffer.from(image.data, "base64") : Buffer.alloc(0);
  check("call-image", image?.mimeType === "image/png" && png.subarray(1, 4).toString() === "PNG", `${png.length} bytes`);

  const quick = await client.callTool({ name: "slow", arguments: { seconds: 0.05 } });
  check("call-slow", quick.content?.[0]?.text === "Waited.", "");

  // Cancel a call that would take 30 seconds: the SDK sends notifications/cancelled.
  const abort = new AbortController();
  const started = Date.now();
  const pending = client.callTool({ name: "slow", arguments: { seconds: 30 } }, undefined, { signal: abort.signal });
  setTimeout(() => abort.abort("user cancelled"), 300);
  let cancelled = false;
  try {
    await pending;
  } catch {
    cancelled = true;
  }
  check("cancel-slow", cancelled && Date.now() - started < 10000, `${Date.now() - started} ms`);

  await client.ping();
  check("ping", true, "");

  await transport.terminateSession();
  check("delete-session", transport.sessionId === undefined, "");
  await client.close();
  console.log("done");
  process.exit(0);
} catch (error) {
  console.log(`fail exception: ${error?.stack ?? error}`);
  process.exit(1);
}
