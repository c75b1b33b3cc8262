// A client on the official TypeScript SDK: starts `omnira mcp` over stdio, lists the tools,
// calls top_apps and a call Omnira refuses, and prints what came back as one JSON line.
// Usage: node sdk_client.mjs COMMAND [ARGS...]
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

const [command, ...args] = process.argv.slice(2);
const transport = new StdioClientTransport({ command, args, env: process.env, stderr: "inherit" });
const client = new Client({ name: "omnira-test", version: "1.0.0" });
await client.connect(transport);
const tools = await client.listTools();
const top = await client.callTool({ name: "top_apps", arguments: { by: "memory", limit: 5 } });
const refused = await client.callTool({ name: "app_details", arguments: {} });
console.log(JSON.stringify({
  server: client.getServerVersion(),
  tools: tools.tools.map((t) => t.name),
  top,
  refused,
}));
await client.close();
