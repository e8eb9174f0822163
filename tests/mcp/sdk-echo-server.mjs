// The MCP TypeScript SDK's own Streamable HTTP server with the same echo tool as Vesk's benchmark,
// stateful with JSON responses like Vesk's server. Listens on 127.0.0.1 at a free port and prints
// "listening <port>" once ready. Used by bench_mcp as the point of comparison.
import { createServer } from "node:http";
import { randomUUID } from "node:crypto";
import { McpServer } from "@modelcontextprotocol/sdk/server/mcp.js";
import { StreamableHTTPServerTransport } from "@modelcontextprotocol/sdk/server/streamableHttp.js";
import { isInitializeRequest } from "@modelcontextprotocol/sdk/types.js";
import { z } from "zod";

const transports = new Map();

function makeServer() {
  const server = new McpServer({ name: "sdk-echo", version: "1.0.0" });
  server.registerTool(
    "echo",
    { description: "Answers with the text it is given.", inputSchema: { text: z.string() } },
    async ({ text }) => ({ content: [{ type: "text", text }] }),
  );
  return server;
}

function readBody(req) {
  return new Promise((resolve, reject) => {
    const chunks = [];
    req.on("data", (c) => chunks.push(c));
    req.on("end", () => resolve(Buffer.concat(chunks).toString("utf8")));
    req.on("error", reject);
  });
}

const http = createServer(async (req, res) => {
  try {
    const body = req.method === "POST" ? JSON.parse(await readBody(req)) : undefined;
    const id = req.headers["mcp-session-id"];
    let transport = id ? transports.get(id) : undefined;
    if (!transport && !id && req.method === "POST" && isInitializeRequest(body)) {
      transport = new StreamableHTTPServerTransport({
        sessionIdGenerator: () => randomUUID(),
        enableJsonResponse: true,
        onsessioninitialized: (sid) => transports.set(sid, transport),
      });
      transport.onclose = () => transport.sessionId && transports.delete(transport.sessionId);
      await makeServer().connect(transport);
    }
    if (!transport) {
      res.writeHead(400, { "Content-Type": "application/json" }).end('{"error":"no session"}');
      return;
    }
    await transport.handleRequest(req, res, body);
  } catch (error) {
    if (!res.headersSent) res.writeHead(500).end(String(error));
  }
});
http.keepAliveTimeout = 60000;
http.listen(0, "127.0.0.1", () => console.log(`listening ${http.address().port}`));
