<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>RenderViewContextMenuQt</name>
    <message>
        <source>Cut</source>
        <translation>剪切</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>后退</translation>
    </message>
    <message>
        <source>Copy</source>
        <translation>复制</translation>
    </message>
    <message>
        <source>Loop</source>
        <translation>循环播放</translation>
    </message>
    <message>
        <source>Redo</source>
        <translation>重做</translation>
    </message>
    <message>
        <source>Undo</source>
        <translation>撤销</translation>
    </message>
    <message>
        <source>Paste</source>
        <translation>粘贴</translation>
    </message>
    <message>
        <source>Inspect</source>
        <translation>检查</translation>
    </message>
    <message>
        <source>Copy media address</source>
        <translation>复制媒体地址</translation>
    </message>
    <message>
        <source>Copy link address</source>
        <translation>复制链接地址</translation>
    </message>
    <message>
        <source>Exit full screen</source>
        <translation>退出全屏</translation>
    </message>
    <message>
        <source>Reload</source>
        <translation>重新加载</translation>
    </message>
    <message>
        <source>Paste and match style</source>
        <translation>粘贴并匹配样式</translation>
    </message>
    <message>
        <source>Open link in new tab</source>
        <translation>在新标签页中打开链接</translation>
    </message>
    <message>
        <source>Save image</source>
        <translation>保存图片</translation>
    </message>
    <message>
        <source>Save media</source>
        <translation>保存媒体</translation>
    </message>
    <message>
        <source>Copy image address</source>
        <translation>复制图片地址</translation>
    </message>
    <message>
        <source>Copy image</source>
        <translation>复制图片</translation>
    </message>
    <message>
        <source>Select all</source>
        <translation>全选</translation>
    </message>
    <message>
        <source>Save page</source>
        <translation>保存网页</translation>
    </message>
    <message>
        <source>Save link</source>
        <translation>保存链接</translation>
    </message>
    <message>
        <source>Forward</source>
        <translation>前进</translation>
    </message>
    <message>
        <source>Show controls</source>
        <translation>显示控件</translation>
    </message>
    <message>
        <source>Open link in new window</source>
        <translation>在新窗口中打开链接</translation>
    </message>
    <message>
        <source>View page source</source>
        <translation>查看网页源代码</translation>
    </message>
</context>
<context>
    <name>QQuickWebEngineView</name>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>Open link in this window</source>
        <translation>在此窗口中打开链接</translation>
    </message>
    <message>
        <source>&amp;Bold</source>
        <translation>加粗(&amp;B)</translation>
    </message>
    <message>
        <source>&amp;Strikethrough</source>
        <translation>删除线(&amp;S)</translation>
    </message>
    <message>
        <source>Align &amp;Left</source>
        <translation>左对齐(&amp;L)</translation>
    </message>
    <message>
        <source>Toggle Mute</source>
        <translation>切换静音</translation>
    </message>
    <message>
        <source>Insert &amp;Unordered List</source>
        <translation>插入无序列表(&amp;U)</translation>
    </message>
    <message>
        <source>Align &amp;Center</source>
        <translation>居中(&amp;C)</translation>
    </message>
    <message>
        <source>Align &amp;Justified</source>
        <translation>两端对齐(&amp;J)</translation>
    </message>
    <message>
        <source>Unselect</source>
        <translation>取消选择</translation>
    </message>
    <message>
        <source>Align &amp;Right</source>
        <translation>右对齐(&amp;R)</translation>
    </message>
    <message>
        <source>&amp;Outdent</source>
        <translation>减少缩进(&amp;O)</translation>
    </message>
    <message>
        <source>Reload and Bypass Cache</source>
        <translation>忽略缓存并重新加载</translation>
    </message>
    <message>
        <source>Close Page</source>
        <translation>关闭网页</translation>
    </message>
    <message>
        <source>Toggle Play/Pause</source>
        <translation>播放/暂停</translation>
    </message>
    <message>
        <source>&amp;Underline</source>
        <translation>下划线(&amp;U)</translation>
    </message>
    <message>
        <source>&amp;Indent</source>
        <translation>增加缩进(&amp;I)</translation>
    </message>
    <message>
        <source>&amp;Italic</source>
        <translation>斜体(&amp;I)</translation>
    </message>
    <message>
        <source>Insert &amp;Ordered List</source>
        <translation>插入有序列表(&amp;O)</translation>
    </message>
</context>
<context>
    <name>QWebEnginePage</name>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>Open link in this window</source>
        <translation>在此窗口中打开链接</translation>
    </message>
    <message>
        <source>&amp;Bold</source>
        <translation>加粗(&amp;B)</translation>
    </message>
    <message>
        <source>&amp;Strikethrough</source>
        <translation>删除线(&amp;S)</translation>
    </message>
    <message>
        <source>Align &amp;Left</source>
        <translation>左对齐(&amp;L)</translation>
    </message>
    <message>
        <source>Open link in new background tab</source>
        <translation>在新后台标签页中打开链接</translation>
    </message>
    <message>
        <source>Toggle Mute</source>
        <translation>切换静音</translation>
    </message>
    <message>
        <source>Insert &amp;Unordered List</source>
        <translation>插入无序列表(&amp;U)</translation>
    </message>
    <message>
        <source>Align &amp;Center</source>
        <translation>居中(&amp;C)</translation>
    </message>
    <message>
        <source>Align &amp;Justified</source>
        <translation>两端对齐(&amp;J)</translation>
    </message>
    <message>
        <source>Unselect</source>
        <translation>取消选择</translation>
    </message>
    <message>
        <source>Align &amp;Right</source>
        <translation>右对齐(&amp;R)</translation>
    </message>
    <message>
        <source>&amp;Outdent</source>
        <translation>减少缩进(&amp;O)</translation>
    </message>
    <message>
        <source>Reload and Bypass Cache</source>
        <translation>忽略缓存并重新加载</translation>
    </message>
    <message>
        <source>Select folder to upload</source>
        <translation>选择要上传的文件夹</translation>
    </message>
    <message>
        <source>Close Page</source>
        <translation>关闭网页</translation>
    </message>
    <message>
        <source>Toggle Play/Pause</source>
        <translation>播放/暂停</translation>
    </message>
    <message>
        <source>&amp;Underline</source>
        <translation>下划线(&amp;U)</translation>
    </message>
    <message>
        <source>Are you sure you want to leave this page? Changes that you made may not be saved.</source>
        <translation>确定要离开此网页吗？您所做的更改可能不会保存。</translation>
    </message>
    <message>
        <source>&amp;Indent</source>
        <translation>增加缩进(&amp;I)</translation>
    </message>
    <message>
        <source>&amp;Italic</source>
        <translation>斜体(&amp;I)</translation>
    </message>
    <message>
        <source>Insert &amp;Ordered List</source>
        <translation>插入有序列表(&amp;O)</translation>
    </message>
</context>
<context>
    <name>DownloadInterruptReason</name>
    <message>
        <source>Access forbidden by the server</source>
        <translation>服务器禁止访问</translation>
    </message>
    <message>
        <source>General file operation failure</source>
        <translation>文件操作失败</translation>
    </message>
    <message>
        <source>The server does not have the requested data</source>
        <translation>服务器上没有所请求的数据</translation>
    </message>
    <message>
        <source>A problem with the server certificate occurred</source>
        <translation>服务器证书有问题</translation>
    </message>
    <message>
        <source>The network connection has been terminated</source>
        <translation>网络连接已中断</translation>
    </message>
    <message>
        <source>The file size exceeds the file system limitation</source>
        <translation>文件大小超出文件系统的限制</translation>
    </message>
    <message>
        <source>Unknown reason or not interrupted</source>
        <translation>原因未知或未中断</translation>
    </message>
    <message>
        <source>The server has gone down</source>
        <translation>服务器已停止响应</translation>
    </message>
    <message>
        <source>The file was blocked due to local policy</source>
        <translation>文件被本地策略阻止</translation>
    </message>
    <message>
        <source>Temporary problem (for example file in use, or too many open files)</source>
        <translation>暂时性问题（例如文件正被使用，或打开的文件过多）</translation>
    </message>
    <message>
        <source>Checking the safety of the download failed due to unexpected reasons</source>
        <translation>因意外原因，下载的安全检查失败</translation>
    </message>
    <message>
        <source>The file cannot be written locally, due to access restrictions</source>
        <translation>因访问限制，无法在本地写入文件</translation>
    </message>
    <message>
        <source>The server did not authorize access to the resource</source>
        <translation>服务器未授权访问该资源</translation>
    </message>
    <message>
        <source>The directory or file name is too long</source>
        <translation>目录或文件名过长</translation>
    </message>
    <message>
        <source>Insufficient space on the target drive</source>
        <translation>目标磁盘空间不足</translation>
    </message>
    <message>
        <source>The network request was invalid (for example, the URL or scheme is invalid)</source>
        <translation>网络请求无效（例如网址或协议无效）</translation>
    </message>
    <message>
        <source>The file is infected with a virus</source>
        <translation>文件感染了病毒</translation>
    </message>
    <message>
        <source>The partial file did not match the expected hash</source>
        <translation>部分下载的文件与预期的校验值不符</translation>
    </message>
    <message>
        <source>Unexpected server response</source>
        <translation>服务器响应异常</translation>
    </message>
    <message>
        <source>General server failure</source>
        <translation>服务器故障</translation>
    </message>
    <message>
        <source>Download canceled by the user</source>
        <translation>用户已取消下载</translation>
    </message>
    <message>
        <source>File seek past the end of a file (resuming previously interrupted download)</source>
        <translation>文件定位超出文件末尾（续传中断的下载时）</translation>
    </message>
    <message>
        <source>General network failure</source>
        <translation>网络故障</translation>
    </message>
    <message>
        <source>The network operation has timed out</source>
        <translation>网络操作超时</translation>
    </message>
</context>
<context>
    <name>UIDelegatesManager</name>
    <message>
        <source>Javascript Alert - %1</source>
        <translation>JavaScript 提示 - %1</translation>
    </message>
    <message>
        <source>Javascript Confirm - %1</source>
        <translation>JavaScript 确认 - %1</translation>
    </message>
    <message>
        <source>Enter username and password for &quot;%1&quot; at %2://%3</source>
        <translation>请输入 %2://%3 上“%1”的用户名和密码</translation>
    </message>
    <message>
        <source>Connect to proxy &quot;%1&quot; using:</source>
        <translation>使用以下身份连接到代理“%1”：</translation>
    </message>
    <message>
        <source>Javascript Prompt - %1</source>
        <translation>JavaScript 输入 - %1</translation>
    </message>
    <message>
        <source>Changes that you made may not be saved.</source>
        <translation>您所做的更改可能不会保存。</translation>
    </message>
    <message>
        <source>Are you sure you want to leave this page?</source>
        <translation>确定要离开此网页吗？</translation>
    </message>
</context>
<context>
    <name>WebContentsAdapter</name>
    <message>
        <source>HTTP-POST data can only be sent over HTTP(S) protocol</source>
        <translation>HTTP-POST 数据只能通过 HTTP(S) 协议发送</translation>
    </message>
</context>
</TS>
